/// What the tests of the flash steps share: programs to put in the real ones'
/// place, and records of what a step emits and logs.
#ifndef TESTS_FLASH_STEPTEST_H
#define TESTS_FLASH_STEPTEST_H

#include "flash/mfproc.h"
#include "tests/support/anyqt.h"
#include "tests/support/descriptors.h"
#include "tests/support/logcatcher.h"
#include "tests/support/onsignal.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QMetaMethod>
#include <QPair>
#include <QStringList>
#include <QTemporaryDir>
#include <QtTest>

/// How long an end is waited for, in milliseconds; a busy machine may take long
/// to start a shell.
const int patience = 60000;
#define TRY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, patience)
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, patience)

/// A folder of shell scripts that comes first on the search path as long as
/// the object lives.
class FakePrograms
{
public:
    FakePrograms() : m_searchPath(qgetenv("PATH"))
    {
        qputenv("PATH", QFile::encodeName(m_dir.path()) + ':' + m_searchPath);
    }
    ~FakePrograms() { qputenv("PATH", m_searchPath); }
    FakePrograms(const FakePrograms &) = delete;
    FakePrograms &operator=(const FakePrograms &) = delete;

    /// Puts @p body, shell commands, under the name @p name. In them $here is
    /// the folder.
    void add(const QString &name, const QByteArray &body)
    {
        write(name, "#!/bin/sh\nulimit -c 0\nhere=${0%/*}\n" + body + "\n");
        QFile::setPermissions(path(name), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    /// A program that notes how it was called, for argumentsSeen() and
    /// directorySeen(), and then runs @p body.
    void addNoting(const QString &name, const QByteArray &body)
    {
        add(name, "printf '%s\\n' \"$@\" >\"$here/arguments\"\npwd >\"$here/directory\"\n" + body);
    }

    /// A program that prints what the capture @p name holds.
    void addPlaying(const QString &program, const QString &name, int exitCode)
    {
        const QByteArray file =
            QFile::encodeName(QLatin1String(FLASH_CAPTURES "/")) + name.toLatin1();
        addNoting(program, "cat '" + file + ".stdout'\ncat '" + file + ".stderr' >&2\nexit " +
                               QByteArray::number(exitCode));
    }

    void write(const QString &name, const QByteArray &content)
    {
        QFile file(path(name));
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        QCOMPARE(file.write(content), qint64(content.size()));
    }

    QByteArray content(const QString &name) const { return contentOf(path(name)); }

    QString path(const QString &name) const { return m_dir.filePath(name); }

    QStringList argumentsSeen() const
    {
        return QString::fromLocal8Bit(content("arguments").trimmed()).split('\n');
    }
    QString directorySeen() const { return QString::fromLocal8Bit(content("directory").trimmed()); }

private:
    QByteArray m_searchPath;
    QTemporaryDir m_dir;
};

/// What a step emitted, in order: "started", "status 7", "complete",
/// "failed Crashed". Tests add what else they want to see in the order.
class Emitted
{
public:
    explicit Emitted(MFProc *step)
    {
        onSignal(step, SIGNAL(started()), [this](const QVariant &) { events << "started"; });
        onSignal(step, SIGNAL(status(int)), [this](const QVariant &percent) {
            events << QString("status %1").arg(percent.toInt());
        });
        onSignal(step, SIGNAL(complete()), [this](const QVariant &) { events << "complete"; });
        onSignal(step, SIGNAL(failed(QString)),
                 [this](const QVariant &err) { events << "failed " + err.toString(); });
    }
    Emitted(const Emitted &) = delete;
    Emitted &operator=(const Emitted &) = delete;

    QStringList events;
};

/// The signatures of the signals and slots that @p metaObject itself declares,
/// in index order.
inline QStringList declaredMethods(const QMetaObject &metaObject)
{
    QStringList signatures;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i)
        signatures << QString::fromLatin1(signatureOf(metaObject.method(i)));
    return signatures;
}

/// The step's process, for what only the process can tell.
inline QProcess *processOf(const MFProc &step)
{
    return step.findChild<QProcess *>();
}

#endif
