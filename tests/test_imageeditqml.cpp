#include "multimedia/imageedit/imageeditprovider.h"
#include "multimedia/multimediaprovider.h"

#include <QtGui/QImage>
#include <QtQml/QJSValue>
#include <QtQml/QQmlComponent>
#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>
#include <QtTest/QtTest>

#include <optional>

/// The detector is slow under sanitizers on a busy machine.
constexpr int kPatience_ms = 60000;

/// A client's QML, which writes down every signal it sees.
static const char kClient[] = R"(
    import QtQml 2.15
    import Quillon 1.0
    QtObject {
        id: root
        property var seen: []
        property var handler: MultimediaProvider.imageEditHandler
        property string boundPath: handler.faceBlurPath
        property string next
        property Connections connections: Connections {
            target: handler
            function onFaceMaskFinished(filePath, blurPath, succ) {
                seen.push(["finished", filePath, blurPath, succ])
                if (root.next.length > 0) {
                    const path = root.next
                    root.next = ""
                    handler.faceMaskDetect(path)
                }
            }
            function onImageEditCanceled(srcPath) { seen.push(["canceled", srcPath]) }
            function onImageSizeChanged(imageSize) { seen.push(["size", imageSize.width, imageSize.height]) }
            function onRotationChanged(rotation) { seen.push(["rotation", rotation]) }
            function onMirroredChanged(mirrored) { seen.push(["mirrored", mirrored]) }
            function onScaleModeChanged(scaleMode) { seen.push(["mode", scaleMode]) }
            function onFaceBlurEnabledChanged(faceBlurEnabled) { seen.push(["enabled", faceBlurEnabled]) }
            function onFaceBlurChanged(faceBlur) { seen.push(["blur", faceBlur]) }
            function onFaceBlurPathChanged(faceBlurPath) { seen.push(["path", faceBlurPath]) }
        }
        function set() {
            handler.rotation = 90
            handler.mirrored = true
            handler.scaleMode = ImageEditProvider.S_16_9
            handler.faceBlur = true
            handler.imageEditCanceled("x")
        }
        function save(source, target) {
            return handler.doEditSync(source, target, {x1: 0, y1: 0, x2: 0.5, y2: 1, revolvecount: 1})
        }
        function cancel(id) { return handler.cancelEdit(id) }
        function thumb(path) { return handler.readThumbImage(path) + "|" + handler.readThumbBytes(path) }
    }
)";

/// Image editing as a client's QML uses it, from the search for faces to the saved file.
class TestImageEditQml : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void properties_tellChanges();
    void faceBlur_goesFromSearchToToggle();
    void faceMaskDetect_copiesPicture_whenItHasNoFace();
    void faceMaskDetect_changesNothing_whenPictureIsLeft();
    void faceMaskDetect_runsOneJob_whenAskedTwice();
    void faceMaskDetect_servesNextRequest_fromTheReport();
    void faceMaskDetect_reportsFailure_whenPictureIsCut();
    void doEditSync_andOthers_areCallable();

private:
    QString at(const QString& name) const { return folder->filePath(name); }
    QString portrait() const; ///< has one face
    QString sky(const QString& name, const QSize& size = {80, 64}) const;
    QVariantList seen(const QString& kind) const;
    QVariant call(const char* function, const QVariantList& arguments = {});

    QTemporaryDir temporary;
    std::optional<QTemporaryDir> folder;
    std::optional<QQmlEngine> engine;
    std::unique_ptr<QObject> client;
    ImageEdit::ImageEditProvider* handler = nullptr;
};

QString TestImageEditQml::portrait() const
{
    QString path = at(QStringLiteral("astronaut.jpg"));
    QFile::copy(QStringLiteral(TEST_DATA_DIR "/photos/astronaut.jpg"), path);
    return path;
}

QString TestImageEditQml::sky(const QString& name, const QSize& size) const
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(x / 2, x / 2 + y / 4, 255 - y / 2));
    image.save(at(name));
    return at(name);
}

void TestImageEditQml::initTestCase()
{
    // What the library leaves in the temporary location goes with this folder.
    QVERIFY(temporary.isValid());
    qputenv("TMPDIR", temporary.path().toLocal8Bit());
    QLoggingCategory::setFilterRules(QStringLiteral("quillon.multimedia.debug=false"));
}

void TestImageEditQml::init()
{
    folder.emplace();
    QVERIFY(folder->isValid());
    engine.emplace();
    MultimediaProvider::registType(*engine);
    handler = MultimediaProvider::instance().imageEditHandler();
    QQmlComponent component(&*engine);
    component.setData(kClient, {});
    client.reset(component.create());
    QVERIFY2(client, qPrintable(component.errorString()));
}

void TestImageEditQml::cleanup()
{
    handler->editReset();
    client.reset();
    engine.reset();
}

QVariantList TestImageEditQml::seen(const QString& kind) const
{
    QVariantList result;
    for (const QVariant& entry : client->property("seen").value<QJSValue>().toVariant().toList())
        if (entry.toList().first() == kind)
            result += QVariant(entry.toList().mid(1));
    return result;
}

QVariant TestImageEditQml::call(const char* function, const QVariantList& arguments)
{
    QVariant result;
    const auto argument = [&](int i) {
        return i < arguments.size() ? Q_ARG(QVariant, arguments[i]) : QGenericArgument();
    };
    QMetaObject::invokeMethod(client.get(), function, Q_RETURN_ARG(QVariant, result), argument(0),
                              argument(1));
    return result;
}

void TestImageEditQml::properties_tellChanges()
{
    call("set");
    call("set");
    QCOMPARE(seen("rotation"), QVariantList({QVariantList{90.0}}));
    QCOMPARE(seen("mirrored"), QVariantList({QVariantList{true}}));
    QCOMPARE(seen("mode"), QVariantList({QVariantList{8}}));
    QCOMPARE(seen("blur"), QVariantList({QVariantList{true}}));
    QCOMPARE(seen("canceled").size(), 2);
}

void TestImageEditQml::faceBlur_goesFromSearchToToggle()
{
    const QString path = portrait();
    const QImage original(path);
    handler->editImage(path);
    QCOMPARE(seen("size"), QVariantList({QVariantList{original.width(), original.height()}}));
    QTRY_COMPARE_WITH_TIMEOUT(seen("enabled"), QVariantList({QVariantList{true}}), kPatience_ms);

    handler->faceMaskDetect(path);
    QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 1, kPatience_ms);
    const QVariantList finished = seen("finished").first().toList();
    const QString blur_path = finished[1].toString();
    QCOMPARE(finished, QVariantList({path, blur_path, true}));
    QCOMPARE(seen("blur"), QVariantList({QVariantList{true}}));
    QCOMPARE(seen("path"), QVariantList({QVariantList{blur_path}}));
    QCOMPARE(client->property("boundPath").toString(), blur_path);
    QVERIFY(blur_path.startsWith(temporary.path()) && blur_path.endsWith(QLatin1String(".jpeg")));
    QCOMPARE(QImage(blur_path).size(), original.size());

    // A blur changes the face far more than writing the file once more does.
    int changed = 0;
    const QImage blurred(blur_path);
    for (int y = 0; y < original.height(); ++y)
        for (int x = 0; x < original.width(); ++x)
            changed += qAbs(qGreen(original.pixel(x, y)) - qGreen(blurred.pixel(x, y))) > 40;
    QVERIFY2(changed > original.width() * original.height() / 200, qPrintable(QString::number(changed)));

    handler->faceMaskDetect(path);
    handler->faceMaskDetect(path);
    QCOMPARE(seen("blur"), QVariantList({QVariantList{true}, QVariantList{false}, QVariantList{true}}));
    QCOMPARE(seen("finished").size(), 1);
    QCOMPARE(handler->faceBlurPath(), blur_path);
}

void TestImageEditQml::faceMaskDetect_copiesPicture_whenItHasNoFace()
{
    // Too small to hold a face.
    const QString path = sky(QStringLiteral("sky.png"), {16, 16});
    QSignalSpy searched(handler, &ImageEdit::ImageEditProvider::faceBlurEnabledChanged);
    handler->setFaceBlurEnabled(true);
    handler->editImage(path);
    QTRY_COMPARE_WITH_TIMEOUT(searched.size(), 2, kPatience_ms);
    QVERIFY(!handler->faceBlurEnabled());

    handler->faceMaskDetect(path);
    QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 1, kPatience_ms);
    QVERIFY(seen("finished").first().toList()[2].toBool());
    QCOMPARE(QImage(handler->faceBlurPath()), QImage(path));
}

void TestImageEditQml::faceMaskDetect_changesNothing_whenPictureIsLeft()
{
    const QString path = portrait();
    handler->editImage(sky(QStringLiteral("sky.jpg")));
    handler->faceMaskDetect(path);
    QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 1, kPatience_ms);
    QCOMPARE(seen("finished").first().toList()[0].toString(), path);
    QVERIFY(QFile::exists(seen("finished").first().toList()[1].toString()));
    QVERIFY(seen("blur").isEmpty() && seen("path").isEmpty());
    QVERIFY(!handler->faceBlur() && handler->faceBlurPath().isEmpty());
}

void TestImageEditQml::faceMaskDetect_runsOneJob_whenAskedTwice()
{
    const QString first = portrait();
    const QString second = sky(QStringLiteral("sky.jpg"));
    handler->faceMaskDetect(first);
    handler->faceMaskDetect(second); // dropped
    QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 1, kPatience_ms);
    QCOMPARE(seen("finished").first().toList()[0].toString(), first);
    handler->faceMaskDetect(second);
    QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 2, kPatience_ms);
    QCOMPARE(seen("finished").last().toList()[0].toString(), second);
}

void TestImageEditQml::faceMaskDetect_servesNextRequest_fromTheReport()
{
    const QString path = sky(QStringLiteral("sky.bmp"));
    for (int i = 1; i <= 20; ++i) {
        client->setProperty("next", path);
        handler->faceMaskDetect(path);
        QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 2 * i, kPatience_ms);
    }
}

void TestImageEditQml::faceMaskDetect_reportsFailure_whenPictureIsCut()
{
    QFile png(sky(QStringLiteral("sky.png")));
    QVERIFY(png.open(QIODevice::ReadWrite) && png.resize(png.size() / 2));
    handler->editImage(png.fileName());
    handler->faceMaskDetect(png.fileName());
    QTRY_COMPARE_WITH_TIMEOUT(seen("finished"),
                              QVariantList({QVariantList{png.fileName(), QString(), false}}), kPatience_ms);
    QVERIFY(seen("blur").isEmpty() && seen("path").isEmpty());

    handler->faceMaskDetect(at(QStringLiteral("nowhere.png"))); // ignored
    QCOMPARE(seen("finished").size(), 1);
}

void TestImageEditQml::doEditSync_andOthers_areCallable()
{
    const QString source = sky(QStringLiteral("sky.jpg"));
    const QString target = at(QStringLiteral("out.png"));
    QCOMPARE(call("save", {source, target}), QVariant(true));
    const QSize size = QImage(source).size();
    QCOMPARE(QImage(target).size(), QSize(size.height() / 2, size.width()));
    QCOMPARE(call("save", {at("nowhere"), target}), QVariant(false));
    QCOMPARE(call("cancel", {QStringLiteral("unknown")}).toInt(), 0);
    const QStringList thumb = call("thumb", {source}).toString().split(QLatin1Char('|'));
    QVERIFY(QImage::fromData(QByteArray::fromBase64(thumb[1].toLatin1())).width() == 32);
}

QTEST_GUILESS_MAIN(TestImageEditQml)
#include "test_imageeditqml.moc"
