#include "multimedia/multimediaprovider.h"

#include "multimedia/devicemgr/devicetypedefine.h"
#include "quillon/graphicdefines.h"

#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>

namespace {
constexpr auto kModule = "Quillon";
constexpr int kMajor = 1;
constexpr int kMinor = 0;
} // namespace

MultimediaProvider& MultimediaProvider::instance()
{
    static MultimediaProvider provider;
    return provider;
}

void MultimediaProvider::registType(QQmlEngine& engine)
{
    qRegisterMetaType<DeviceManager::DeviceMgr*>("DeviceMgr*");
    const auto enums_only = QStringLiteral("Access to enums & flags only");
    qmlRegisterUncreatableMetaObject(DeviceTypeDefine::staticMetaObject, kModule, kMajor, kMinor,
                                     "DeviceTypeDefine", enums_only);
    qmlRegisterUncreatableMetaObject(GraphicDefines::staticMetaObject, kModule, kMajor, kMinor,
                                     "GraphicDefines", enums_only);
    engine.rootContext()->setContextProperty(QStringLiteral("MultimediaProvider"), &instance());
}

void MultimediaProvider::unregist()
{
    DeviceManager::DeviceMgr::release();
}

DeviceManager::DeviceMgr* MultimediaProvider::deviceMgr() const
{
    return DeviceManager::DeviceMgr::instance();
}
