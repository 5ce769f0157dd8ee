#include "bench/keypad/keypadstandins.h"

#include "bench/keypad/hostprotocol.h"
#include "bench/keypad/keypadboard.h"

namespace
{

QString whole(const QString &folder, const QString &name)
{
    return folder + QLatin1Char('/') + name;
}

} // namespace

bool KeypadStandins::writePlay(const QString &program)
{
    const Play &play = m_plays[program];
    QByteArray text = "play " + play.play.toUtf8() + '\n' + "seconds " +
                      QByteArray::number(play.seconds, 'f', 3) + '\n';
    if (!play.hold.isEmpty())
        text += "hold " + play.hold + '\n';
    const QString file = whole(QLatin1String(BenchPlace::plays), program);
    // The program may be reading it: as a whole or not at all.
    return m_board->writeFile(file + QLatin1String(".new"), text) &&
           m_board->renameFile(file + QLatin1String(".new"), file);
}

bool KeypadStandins::setStandin(const QString &program, const QString &play)
{
    const QString path = whole(QLatin1String(BenchPlace::programs), program);
    if (play == QLatin1String("missing"))
        return m_board->removeFile(path);
    if (!m_board->exists(path) && !m_board->makeLink(QStringLiteral("../keypad-standin"), path))
        return false;
    m_plays[program].play = play;
    return writePlay(program);
}

bool KeypadStandins::setStandinSeconds(const QString &program, double seconds)
{
    m_plays[program].seconds = seconds;
    return writePlay(program);
}

bool KeypadStandins::holdStandin(const QString &program, const QByteArray &text)
{
    m_plays[program].hold = text;
    return writePlay(program);
}

bool KeypadStandins::releaseStandin(const QString &program)
{
    return holdStandin(program, QByteArray());
}

QList<KeypadStandins::StandinCall> KeypadStandins::standinCalls()
{
    const QString folder = QLatin1String(BenchPlace::calls);
    QList<StandinCall> calls;
    const QStringList names = m_board->listDir(folder);
    for (const QString &name : names) {
        if (name.startsWith(QLatin1Char('.')))
            continue;
        QList<QByteArray> parts = m_board->readFile(whole(folder, name)).split('\0');
        StandinCall call;
        call.program = name.mid(name.indexOf(QLatin1Char('-')) + 1);
        call.workingDirectory = QString::fromUtf8(parts.takeFirst());
        while (!parts.isEmpty() && !parts.first().isEmpty())
            call.arguments.append(QString::fromUtf8(parts.takeFirst()));
        for (const QByteArray &variable : qAsConst(parts)) {
            const int equals = int(variable.indexOf('='));
            if (equals > 0)
                call.environment.insert(QString::fromUtf8(variable.left(equals)),
                                        QString::fromUtf8(variable.mid(equals + 1)));
        }
        calls.append(call);
    }
    return calls;
}
