/// A window in one colour that logs what it is given: presses, releases, its
/// arguments and what is asked on the command line.
///     colour NAME   the window's colour
///     say TEXT      logged as debug, with a line end in the middle
///     timer MSECS   logs "timer" after that long
///     exit CODE     ends at once

#include <QApplication>
#include <QMouseEvent>
#include <QPalette>
#include <QScreen>
#include <QTimer>
#include <QWidget>

namespace
{

class Window : public QWidget
{
protected:
    void mousePressEvent(QMouseEvent *event) override
    {
        qDebug("press %d %d", event->pos().x(), event->pos().y());
    }
    void mouseReleaseEvent(QMouseEvent *event) override
    {
        qDebug("release %d %d", event->pos().x(), event->pos().y());
    }
};

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    Window window;
    const QStringList words = QCoreApplication::arguments();
    for (int i = 1; i + 1 < words.size(); i += 2) {
        const QString value = words.at(i + 1);
        if (words.at(i) == QLatin1String("colour"))
            window.setPalette(QPalette(QPalette::Window, QColor(value)));
        else if (words.at(i) == QLatin1String("say"))
            qDebug("%s\nand more", qPrintable(value));
        else if (words.at(i) == QLatin1String("timer"))
            QTimer::singleShot(value.toInt(), [] { qWarning("timer"); });
        else if (words.at(i) == QLatin1String("exit"))
            return value.toInt();
    }
    window.setGeometry(QGuiApplication::primaryScreen()->geometry());
    window.show();
    qDebug("shown");
    return QApplication::exec();
}
