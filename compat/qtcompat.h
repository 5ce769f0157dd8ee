/// What differs between Qt 4.8, 5.15 and 6 in processes, timers and the event loop.
/// Screen, cursor and wildcards stand beside it, the pointer drivers in calibration/;
/// the rest of the tool is written in the API that the three share.
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

/// Lets @p timer keep its interval to the millisecond, as every timer of Qt 4 does;
/// without that it may fire a twentieth too early. To be called before its start.
inline void makePrecise(QTimer *timer)
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 0, 0)
    timer->setTimerType(Qt::PreciseTimer);
#else
    Q_UNUSED(timer);
#endif
}

/// Ends the event loop with status 0 and touches no window. Qt 6's quit() would
/// close the windows first, and a closing calibration dialog stores a calibration.
inline void quitApplication()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::exit(0);
#else
    QCoreApplication::quit();
#endif
}

#endif
