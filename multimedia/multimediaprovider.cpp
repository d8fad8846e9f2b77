#include "multimedia/multimediaprovider.h"

#include "multimedia/devicemgr/devicetypedefine.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "quillon/graphicdefines.h"

#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>

namespace {
constexpr auto kModule = "Quillon";
constexpr int kMajor = 1;
constexpr int kMinor = 0;
constexpr QSize kFrameSize(120, 96);

QObject* videoEditor(QQmlEngine*, QJSEngine*)
{
    VideoEditor::instance()->setImageFrameSize(kFrameSize);
    return VideoEditor::instance();
}
} // namespace

MultimediaProvider& MultimediaProvider::instance()
{
    static MultimediaProvider provider;
    return provider;
}

void MultimediaProvider::registType(QQmlEngine& engine)
{
    qRegisterMetaType<RecordEngine*>("RecordEngine*");
    qRegisterMetaType<DeviceManager::DeviceMgr*>("DeviceMgr*");
    const auto enums_only = QStringLiteral("Access to enums & flags only");
    qmlRegisterUncreatableMetaObject(DeviceTypeDefine::staticMetaObject, kModule, kMajor, kMinor,
                                     "DeviceTypeDefine", enums_only);
    qmlRegisterUncreatableMetaObject(GraphicDefines::staticMetaObject, kModule, kMajor, kMinor,
                                     "GraphicDefines", enums_only);
    qmlRegisterUncreatableType<ImageEdit::ImageEditProvider>(kModule, kMajor, kMinor, "ImageEditProvider",
                                                             enums_only);
    qmlRegisterSingletonType<VideoEditor>(kModule, kMajor, kMinor, "VideoEditor", videoEditor);
    VideoEditor::instance()->bindQmlEngine(&engine);
    qRegisterMetaType<ImageEdit::ImageEditProvider*>("ImageEditProvider*");
    engine.rootContext()->setContextProperty(QStringLiteral("MultimediaProvider"), &instance());
}

void MultimediaProvider::unregist()
{
    RecordEngine::instance()->releaseInstance();
    DeviceManager::DeviceMgr::release();
}

RecordEngine* MultimediaProvider::recordEngine() const
{
    return RecordEngine::instance();
}

DeviceManager::DeviceMgr* MultimediaProvider::deviceMgr() const
{
    return DeviceManager::DeviceMgr::instance();
}

ImageEdit::ImageEditProvider* MultimediaProvider::imageEditHandler() const
{
    return ImageEdit::ImageEditProvider::instance();
}
