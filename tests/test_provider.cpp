#include "multimedia/devicemgr/devicetypedefine.h"
#include "multimedia/multimediaprovider.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "quillon/graphicdefines.h"

#include <QtQml/QQmlComponent>
#include <QtQml/QQmlEngine>
#include <QtTest/QtTest>

class TestProvider : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void registType_opensModule_forEveryEngine();
};

void TestProvider::registType_opensModule_forEveryEngine()
{
    QQmlEngine first;
    QQmlEngine second;
    for (QQmlEngine* engine : {&first, &second}) {
        MultimediaProvider::registType(*engine);
        QQmlComponent component(engine);
        component.setData(
            "import QtQml 2.15; import Quillon 1.0;"
            "QtObject { property var values: [DeviceTypeDefine.Null, DeviceTypeDefine.AudioInput,"
            "DeviceTypeDefine.AudioOutput, DeviceTypeDefine.Camera, DeviceTypeDefine.Screen];"
            "property int arrow: GraphicDefines.Arrow; property QtObject editor: VideoEditor;"
            "property QtObject images: ImageContext; property QtObject provider: MultimediaProvider }",
            {});
        const QScopedPointer<QObject> object(component.create());
        QVERIFY2(object, qPrintable(component.errorString()));
        QCOMPARE(object->property("values").toList(), (QVariantList{0, 1, 2, 3, 4}));
        QCOMPARE(object->property("arrow").toInt(), int(GraphicDefines::Arrow));
        QCOMPARE(object->property("provider").value<QObject*>(), &MultimediaProvider::instance());

        QCOMPARE(object->property("editor").value<QObject*>(), VideoEditor::instance());
        QCOMPARE(VideoEditor::instance()->getSize(), QSize(120, 96));
        QVERIFY(object->property("images").value<QObject*>());
        QVERIFY(engine->imageProvider(QStringLiteral("videoimageprovider")));

        component.setData("import Quillon 1.0; DeviceTypeDefine {}", {});
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(".*")));
        const QScopedPointer<QObject> instance(component.create());
        QVERIFY(!instance);
        QVERIFY(component.errorString().contains(QLatin1String("Access to enums & flags only")));
    }
    MultimediaProvider::unregist();
}

QTEST_MAIN(TestProvider)
#include "test_provider.moc"
