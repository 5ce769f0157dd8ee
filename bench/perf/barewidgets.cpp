// A Qt Widgets program that says on the line when it is ready: the floor of the
// tool's start and of its memory.
//
//     perf-barewidgets COUNT      a window with COUNT widgets, labels
//     perf-barewidgets PICTURE    the tool's own screen behind a picture, and
//                                 nothing that does anything
#include <QApplication>
#include <QGridLayout>
#include <QImage>
#include <QLabel>
#include <QPixmap>
#include <QScreen>
#include <QTimer>

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "app/mftool.h" // for its form
#include "bench/perf/bareframe.h"

namespace
{

const int columns = 6;
const unsigned readyMessage = 0x9999;

void fillWithLabels(QWidget *window, int count)
{
    auto *grid = new QGridLayout(window);
    for (int i = 1; i < count; ++i)
        grid->addWidget(new QLabel(QString::number(i), window), i / columns, i % columns);
}

void fillLikeTheTool(QWidget *window, const QString &picture)
{
    static Ui::mftoolClass form;
    form.setupUi(window);
    auto *label = new QLabel(window);
    label->setGeometry(0, 0, window->width(), window->height());
    label->setPixmap(QPixmap::fromImage(QImage(picture)));
    label->show();
}

void say(int line, unsigned type)
{
    char frame[32];
    const size_t length = bare_build(frame, type, "", 0);
    if (write(line, frame, length) < 0)
        std::exit(1);
}

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    const QString what = QString::fromLocal8Bit(argc > 1 ? argv[1] : "1");
    const int line = open("/dev/ttySP0", O_RDWR | O_NOCTTY);
    QWidget window;
    if (what.toInt() > 0)
        fillWithLabels(&window, what.toInt());
    else
        fillLikeTheTool(&window, what);
    QTimer::singleShot(0, &window, [line] { say(line, readyMessage); });
    window.setGeometry(QGuiApplication::primaryScreen()->geometry());
    window.showFullScreen();
    return QApplication::exec();
}
