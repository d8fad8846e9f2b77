#include "examples/host/screenpage.h"
#include "examples/host/videopage.h"
#include "multimedia/multimediaprovider.h"

#include <QtGui/QGuiApplication>
#include <QtQml/QQmlApplicationEngine>
#include <QtQml/QQmlContext>

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    ScreenPage screen_page;
    VideoPage video_page;
    int code = 0;
    {
        QQmlApplicationEngine engine;
        MultimediaProvider::registType(engine);
        engine.rootContext()->setContextProperty(QStringLiteral("screenPage"), &screen_page);
        engine.rootContext()->setContextProperty(QStringLiteral("videoPage"), &video_page);
        engine.load(QStringLiteral("qrc:/host/main.qml"));
        if (engine.rootObjects().isEmpty())
            return 1;
        code = application.exec();
    }
    MultimediaProvider::unregist();
    return code;
}
