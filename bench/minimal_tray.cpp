// The yardstick for the companion's footprint: the least a Qt tray program can be, an icon and a
// one-second timer, nothing else.
#include <QApplication>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QPixmap pixmap(22, 22);
    pixmap.fill(Qt::darkGray);
    QSystemTrayIcon icon{QIcon(pixmap)};
    icon.show();
    int ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
    timer.start(1000);
    return app.exec();
}
