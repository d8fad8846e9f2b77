#include "examples/host/host.h"

#include "examples/host/filmview.h"
#include "examples/host/photocanvas.h"
#include "examples/host/screenpreview.h"
#include "multimedia/multimediaprovider.h"

#include <QtQml/QQmlApplicationEngine>
#include <QtQml/QQmlContext>
#include <QtQuick/QQuickWindow>

Host::Host()
    : engine(std::make_unique<QQmlApplicationEngine>())
{
    MultimediaProvider::registType(*engine);
    qmlRegisterType<FilmView>("Host", 1, 0, "FilmView");
    qmlRegisterType<PhotoCanvas>("Host", 1, 0, "PhotoCanvas");
    qmlRegisterType<ScreenPreview>("Host", 1, 0, "ScreenPreview");
    qmlRegisterUncreatableType<Player>("Host", 1, 0, "Player", QStringLiteral("There is one player"));
    engine->rootContext()->setContextProperties({
        {QStringLiteral("hostFiles"), QVariant::fromValue<QObject*>(&files)},
        {QStringLiteral("player"), QVariant::fromValue<QObject*>(&player)},
        {QStringLiteral("screenPage"), QVariant::fromValue<QObject*>(&screen_page)},
        {QStringLiteral("photo"), QVariant::fromValue<QObject*>(&photo)},
        {QStringLiteral("videoPage"), QVariant::fromValue<QObject*>(&video_page)},
        {QStringLiteral("gifPage"), QVariant::fromValue<QObject*>(&gif_page)},
    });
    engine->load(QStringLiteral("qrc:/host/qml/main.qml"));
}

Host::~Host()
{
    engine.reset(); // before what its QML refers to
    MultimediaProvider::unregist();
}

QQuickWindow* Host::window() const
{
    return qobject_cast<QQuickWindow*>(engine->rootObjects().value(0));
}
