#include "examples/host/host.h"
#include "multimedia/audioplayer/audioplayer.h"

#include <QtWidgets/QApplication>

int main(int argc, char* argv[])
{
    QApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    // Not a QGuiApplication: where the desktop has no file dialog of its own, widgets make it.
    QApplication application(argc, argv);
    application.setApplicationDisplayName(QStringLiteral("Multimedia example host"));
    int code = 1;
    {
        const Host host;
        if (host.window())
            code = QApplication::exec();
    }
    AudioPlayer::instance()->release();
    return code;
}
