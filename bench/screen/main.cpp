/// The operator's screen. "bench line --screen" is replaced by this program, which starts the
/// line, shows it, and ends with its exit status.
///
///     bench-screen BENCH line --screen ...
#include "bench/common/command.h"
#include "bench/screen/lineprocess.h"
#include "bench/screen/screenwindow.h"

#include <QApplication>
#include <QFile>
#include <QScreen>

#include <cstdlib>

#include <unistd.h>

namespace
{

QString complaint; ///< the first one of Qt's platform

/// Without a display Qt would abort.
void tellNoDisplay(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type != QtFatalMsg) {
        const bool isPlatforms = QByteArray(context.category).startsWith("qt.qpa.");
        if (isPlatforms && complaint.isEmpty())
            complaint = message.section(QLatin1Char('\n'), 0, 0).trimmed();
        return;
    }
    QString text = QStringLiteral("--screen: no display can be opened");
    if (!complaint.isEmpty())
        text += QStringLiteral(" (%1)").arg(complaint);
    _exit(complain(QStringLiteral("line"), text, BenchExit::Unable));
}

bool isClosed = false; ///< by the operator, or a signal

/// If the display goes away Qt ends the program, with a status that means something else.
void endUnable()
{
    if (!isClosed)
        _exit(BenchExit::Unable);
}

/// Window and line together. The line starts once the window is there.
class Session : public QObject
{
    Q_OBJECT

public:
    Session()
    {
        connect(&m_line, SIGNAL(said(QByteArray)), &m_window, SLOT(read(QByteArray)));
        connect(&m_line, SIGNAL(ended(int)), SLOT(end(int)));
        connect(&m_window, SIGNAL(said(QJsonObject)), &m_line, SLOT(say(QJsonObject)));
        connect(&m_window, SIGNAL(interrupted()), &m_line, SLOT(interrupt()));
        connect(&m_window, SIGNAL(left()), SLOT(leave()));
    }

    void start(const QString &program, QStringList arguments)
    {
        // Without a window manager nothing else makes it large and gives it the keys.
        m_window.setGeometry(QApplication::primaryScreen()->geometry());
        m_window.showFullScreen();
        m_window.activateWindow();
        // At the beginning: the plan may come behind "--".
        arguments.insert(1, QStringLiteral("--screened"));
        m_line.start(program, arguments);
    }

private slots:
    void end(int status)
    {
        m_status = status;
        m_window.end();
        if (LineProcess::wasSignalled())
            leave();
    }

    void leave() { QApplication::exit(m_status); }

private:
    ScreenWindow m_window;
    LineProcess m_line;
    int m_status = BenchExit::Unable;
};

} // namespace

int main(int argc, char **argv)
{
    qInstallMessageHandler(tellNoDisplay);
    int own = 1; // the other arguments are for the line, and Qt would use some of them
    QApplication application(own, argv);
    qInstallMessageHandler(nullptr);
    QApplication::setApplicationName(QStringLiteral("bench"));
    QApplication::setQuitOnLastWindowClosed(false);
    if (argc < 3)
        return complain(QStringLiteral("line"),
                        QStringLiteral("the screen is started by \"bench line --screen\""),
                        BenchExit::Usage);
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QFile::decodeName(argv[i]));
    const QString program = arguments.takeFirst();
    Session session;
    session.start(program, arguments);
    std::atexit(endUnable);
    const int status = QApplication::exec();
    isClosed = true;
    return status;
}

#include "main.moc"
