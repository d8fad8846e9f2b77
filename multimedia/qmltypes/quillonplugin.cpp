#include "multimedia/multimediaprovider.h"

#include <QtQml/QQmlEngine>
#include <QtQml/QQmlExtensionPlugin>

/// Lets Qt's dumper of QML types see the module `Quillon`, which in a host no plugin brings. Never installed.
class QuillonPlugin : public QQmlExtensionPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)

public:
    void registerTypes(const char*) override
    {
        // An engine can only be had once the types are there, and the dumper unloads no plugin before it
        // ends.
        static auto* const engine = new QQmlEngine;
        MultimediaProvider::registType(*engine);
    }
};

#include "quillonplugin.moc"
