#include "bench/keypad/keypadboard.h"

#include "bench/keypad/hostclient.h"

#include <QJsonArray>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

using namespace HostProtocol;

namespace
{

QByteArray readAll(int fd)
{
    QByteArray content;
    char chunk[16 * 1024];
    ssize_t count;
    while ((count = read(fd, chunk, sizeof chunk)) > 0)
        content.append(chunk, int(count));
    return content;
}

} // namespace

QJsonObject KeypadBoard::sysfs(SysfsCall call, const QString &path, const QByteArray &text,
                               int number, int error)
{
    return m_host->call(Operation::Sysfs, {{Key::Call, toJson(call)},
                                           {Key::Path, path},
                                           {Key::Text, Channel::toText(text)},
                                           {Key::Number, number},
                                           {Key::Error, error}});
}

QByteArray KeypadBoard::attribute(const QString &path)
{
    return Channel::toBytes(sysfs(SysfsCall::Show, path).value(Key::Text));
}

bool KeypadBoard::setAttribute(const QString &path, const QByteArray &text)
{
    return sysfs(SysfsCall::Set, path, text).value(Key::Ok).toBool();
}

void KeypadBoard::fail(const QString &path, SysfsModel::Operation operation, int error)
{
    sysfs(SysfsCall::Fail, path, QByteArray(), operation, error);
}

void KeypadBoard::clearFault(const QString &path)
{
    sysfs(SysfsCall::ClearFault, path);
}

bool KeypadBoard::addLed(const QString &name, int maximum)
{
    return sysfs(SysfsCall::AddLed, name, QByteArray(), maximum).value(Key::Ok).toBool();
}

bool KeypadBoard::addAttribute(const QString &path, const QByteArray &text)
{
    return sysfs(SysfsCall::AddAttribute, path, text).value(Key::Ok).toBool();
}

bool KeypadBoard::removeNode(const QString &path)
{
    return sysfs(SysfsCall::Remove, path).value(Key::Ok).toBool();
}

bool KeypadBoard::hasNode(const QString &path)
{
    return sysfs(SysfsCall::Has, path).value(Key::Ok).toBool();
}

int KeypadBoard::openFile(const QString &path, int flags, unsigned mode)
{
    QList<int> descriptors;
    const QJsonObject reply = m_host->call(
        Operation::Open, {{Key::Path, path}, {Key::Flags, flags}, {Key::Mode, int(mode)}},
        &descriptors);
    if (!descriptors.isEmpty())
        return descriptors.first();
    m_host->succeeded(path, reply.value(Key::Error).toInt());
    return -1;
}

QByteArray KeypadBoard::readFile(const QString &path, bool *ok)
{
    const int fd = openFile(path, O_RDONLY);
    if (ok != nullptr)
        *ok = fd >= 0;
    if (fd < 0)
        return QByteArray();
    const QByteArray content = readAll(fd);
    close(fd);
    return content;
}

bool KeypadBoard::writeFile(const QString &path, const QByteArray &bytes, unsigned mode)
{
    const int fd = openFile(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
    if (fd < 0)
        return false;
    const ssize_t written = write(fd, bytes.constData(), size_t(bytes.size()));
    const int number = written == bytes.size() ? 0 : written < 0 ? errno : EIO;
    close(fd);
    return m_host->succeeded(path, number);
}

bool KeypadBoard::changed(Operation operation, const QString &path, const QString &to)
{
    const QJsonObject reply = m_host->call(operation, {{Key::Path, path}, {Key::To, to}});
    return m_host->succeeded(path, reply.value(Key::Error).toInt());
}

bool KeypadBoard::exists(const QString &path)
{
    return changed(Operation::Exists, path);
}

bool KeypadBoard::removeFile(const QString &path)
{
    return changed(Operation::Remove, path);
}

bool KeypadBoard::renameFile(const QString &path, const QString &to)
{
    return changed(Operation::Rename, path, to);
}

bool KeypadBoard::makeLink(const QString &target, const QString &path)
{
    return changed(Operation::Link, target, path);
}

bool KeypadBoard::makeDir(const QString &path)
{
    return changed(Operation::MakeFolders, path);
}

QStringList KeypadBoard::listDir(const QString &path)
{
    QStringList names;
    const QJsonArray found =
        m_host->call(Operation::List, {{Key::Path, path}}).value(Key::Names).toArray();
    for (const QJsonValue &name : found)
        names.append(name.toString());
    names.sort();
    return names;
}

KeypadBoard::RunResult KeypadBoard::run(const QString &program, const QStringList &arguments,
                                        int msecs)
{
    RunResult result;
    QList<int> descriptors;
    const QJsonArray all = QJsonArray::fromStringList(QStringList(program) + arguments);
    const QJsonObject reply =
        m_host->call(Operation::Run, {{Key::Arguments, all}}, &descriptors, msecs);
    result.code = reply.value(Key::Code).toInt(-1);
    result.signal = reply.value(Key::Signal).toInt();
    QByteArray *const outputs[] = {&result.output, &result.errors};
    for (int i = 0; i < descriptors.size(); ++i) {
        lseek(descriptors.at(i), 0, SEEK_SET);
        *outputs[i] = readAll(descriptors.at(i));
        close(descriptors.at(i));
    }
    return result;
}
