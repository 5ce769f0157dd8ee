#include "tests/whole/programs.h"

#include "tests/whole/patience.h"

namespace
{

const QLatin1String programsDir("/run/bench/bin/");
const QLatin1String callsDir("/run/bench/calls");
const QLatin1String attachedMark("/run/bench/attached");
const char *const names[] = {"kobs-ng", "ubiformat", "ubiattach", "mount"};

} // namespace

QList<int> Programs::running(VirtualKeypad &keypad, const QString &program)
{
    QList<int> found;
    const QStringList entries = keypad.listDir(QStringLiteral("/proc"));
    for (const QString &entry : entries) {
        bool isNumber = false;
        const int number = entry.toInt(&isNumber);
        if (!isNumber)
            continue;
        const QByteArray line = keypad.readFile(QStringLiteral("/proc/%1/stat").arg(number));
        // "12 (name) S ...": one that has ended but was not waited for is gone.
        const QByteArray name = line.mid(line.indexOf('(') + 1);
        if (name.startsWith(program.toLatin1() + ") ") && !name.contains(") Z"))
            found.append(number);
    }
    return found;
}

bool Programs::waitUntilRunning(VirtualKeypad &keypad, const QString &program)
{
    return Patience::waitUntil([&] { return !running(keypad, program).isEmpty(); });
}

bool Programs::waitUntilGone(VirtualKeypad &keypad, const QString &program)
{
    return Patience::waitUntil([&] { return running(keypad, program).isEmpty(); });
}

bool Programs::kill(VirtualKeypad &keypad, const QString &program, const QString &signal)
{
    bool killed = false;
    // One of them may be a shell's child that is just turning into another program.
    const QList<int> numbers = running(keypad, program);
    for (const int number : numbers)
        killed |= keypad
                      .run(QStringLiteral("kill"),
                           {QStringLiteral("-s"), signal, QString::number(number)})
                      .code == 0;
    return killed;
}

bool Programs::setScript(VirtualKeypad &keypad, const QString &program, const QByteArray &script)
{
    const QString path = programsDir + program;
    // Not through the link: that is the one file behind all stand-ins.
    return keypad.removeFile(path) && keypad.writeFile(path, "#!/bin/sh\n" + script, 0755);
}

bool Programs::restore(VirtualKeypad &keypad, const QString &program)
{
    return keypad.removeFile(programsDir + program) &&
           keypad.setStandin(program, QStringLiteral("auto")) &&
           keypad.setStandinSeconds(program, 0) && keypad.releaseStandin(program);
}

bool Programs::restoreAll(VirtualKeypad &keypad)
{
    for (const char *name : names) {
        if (!restore(keypad, QLatin1String(name)))
            return false;
    }
    const QStringList old = keypad.listDir(callsDir);
    for (const QString &call : old)
        keypad.removeFile(callsDir + QLatin1Char('/') + call);
    return keypad.removeFile(attachedMark);
}

QStringList Programs::calls(VirtualKeypad &keypad)
{
    QStringList lines;
    const QList<VirtualKeypad::StandinCall> all = keypad.standinCalls();
    for (const VirtualKeypad::StandinCall &call : all)
        lines.append((QStringList(call.program) + call.arguments).join(QLatin1Char(' ')));
    return lines;
}

double Programs::startTime(VirtualKeypad &keypad, const QString &program)
{
    // The files are called "SECONDS.NANOSECONDS-PROGRAM".
    const QStringList files = keypad.listDir(callsDir);
    for (const QString &file : files) {
        const int dash = int(file.indexOf(QLatin1Char('-')));
        if (!file.startsWith(QLatin1Char('.')) && file.mid(dash + 1) == program)
            return file.left(dash).toDouble() * 1000;
    }
    return -1;
}
