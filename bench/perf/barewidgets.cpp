// A Qt Widgets program with a given number of widgets that says on the line when
// it is ready: the floor of the tool's start and of its memory.
//
//     perf-barewidgets COUNT
#include <QApplication>
#include <QGridLayout>
#include <QLabel>
#include <QScreen>
#include <QTimer>

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "bench/perf/bareframe.h"

namespace
{

const int columns = 6;
const unsigned readyMessage = 0x9999;

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
    const int count = argc > 1 ? std::atoi(argv[1]) : 1;
    const int line = open("/dev/ttySP0", O_RDWR | O_NOCTTY);
    QWidget window;
    auto *grid = new QGridLayout(&window);
    for (int i = 1; i < count; ++i)
        grid->addWidget(new QLabel(QString::number(i), &window), i / columns, i % columns);
    QTimer::singleShot(0, &window, [line] { say(line, readyMessage); });
    window.setGeometry(QGuiApplication::primaryScreen()->geometry());
    window.showFullScreen();
    return QApplication::exec();
}
