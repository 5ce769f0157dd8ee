#include "bench/board/boardimage.h"

#include <QFile>
#include <QProcess>

namespace
{

const int cannotExit = 77;

QString maker()
{
    return QStringLiteral(BENCH_SOURCE_DIR "/bench/board/make-image.sh");
}

QStringList packageOption(const QString &package)
{
    return package.isEmpty() ? QStringList() : QStringList{QStringLiteral("--package"), package};
}

} // namespace

BoardImage::Made BoardImage::make(const QString &package)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(maker(), packageOption(package));
    process.waitForFinished(-1);
    if (process.exitStatus() != QProcess::NormalExit || process.error() == QProcess::FailedToStart)
        return Failed;
    if (process.exitCode() == 0)
        return Good;
    return process.exitCode() == cannotExit ? Impossible : Failed;
}

QString BoardImage::find(const QString &package, QString *error)
{
    QProcess process;
    process.start(maker(), QStringList{QStringLiteral("--where")} + packageOption(package));
    process.waitForFinished(-1);
    const QString folder = QString::fromLocal8Bit(process.readAllStandardOutput().trimmed());
    if (process.exitCode() != 0 || folder.isEmpty()) {
        *error = QString::fromLocal8Bit(process.readAllStandardError().trimmed());
        return QString();
    }
    if (QFile::exists(folder + QLatin1String("/complete")))
        return folder;
    *error = QStringLiteral("there is no board for this source tree yet: run build/bench board");
    return QString();
}
