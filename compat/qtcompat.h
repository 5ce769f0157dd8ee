/// What differs between Qt 4.8, 5.15 and 6 in processes, timers and the event loop.
/// Screen, cursor and wildcards have headers of their own, the pointer drivers are in
/// calibration/; the rest of the tool is written in the API that the three share.
#ifndef COMPAT_QTCOMPAT_H
#define COMPAT_QTCOMPAT_H

#include <QCoreApplication>
#include <QTimer>
#include <QtGlobal>

/// The signal of QProcess that reports an error, as a string signature for
/// connect(). Exactly one may be connected: 5.15 emits both names.
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
#define MFTOOL_SIGNAL_PROCESS_ERROR SIGNAL(errorOccurred(QProcess::ProcessError))
#else
#define MFTOOL_SIGNAL_PROCESS_ERROR SIGNAL(error(QProcess::ProcessError))
#endif

/// Makes @p timer exact to the millisecond, as every timer of Qt 4 is. Otherwise it may
/// fire 5 per cent too early. Call this before it starts.
inline void makePrecise(QTimer *timer)
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 0, 0)
    timer->setTimerType(Qt::PreciseTimer);
#else
    Q_UNUSED(timer);
#endif
}

/// Ends the event loop with status 0 and leaves the windows alone. Qt 6's quit() would
/// close them first, and a calibration dialog that closes stores a calibration.
inline void quitApplication()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::exit(0);
#else
    QCoreApplication::quit();
#endif
}

#endif
