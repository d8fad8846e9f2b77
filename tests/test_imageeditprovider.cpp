#include "multimedia/imageedit/imageeditprovider.h"
#include "multimedia/multimediaprovider.h"
#include "tests/support/faces.h"
#include "tests/support/files.h"
#include "tests/support/imagebytes.h"
#include "tests/support/incase.h"
#include "tests/support/process.h"

#include <QtGui/QImage>
#include <QtGui/QImageReader>
#include <QtGui/QTransform>
#include <QtQml/QJSValue>
#include <QtQml/QQmlComponent>
#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>
#include <QtTest/QtTest>

#include <array>
#include <optional>

using ImageEdit::ImageEditProvider;

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

/// The picture under edit, its properties and its faces, as a client uses them.
class TestImageEditProvider : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void editImage_takesOnly_whatItMayEdit();
    void properties_tellChanges();
    void editReset_restoresDefaults();
    void thumbnails_areMade_whereNeeded();
    void faceBlur_goesFromSearchToToggle();
    void faceBlur_sitsOnFace_inEveryOrientation();
    void faceMaskDetect_copiesPicture_whenItHasNoFace();
    void faceSearch_andBlur_areOver_withTheirEdit();
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
    ImageEditProvider* handler = nullptr;
};

QString TestImageEditProvider::portrait() const
{
    QString path = at(QStringLiteral("astronaut.jpg"));
    QFile::copy(dataFile("photos/astronaut.jpg"), path);
    return path;
}

QString TestImageEditProvider::sky(const QString& name, const QSize& size) const
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(x / 2, x / 2 + y / 4, 255 - y / 2));
    image.save(at(name));
    return at(name);
}

void TestImageEditProvider::initTestCase()
{
    // What the library leaves in the temporary location goes with this folder.
    QVERIFY(temporary.isValid());
    qputenv("TMPDIR", temporary.path().toLocal8Bit());
    QLoggingCategory::setFilterRules(QStringLiteral("quillon.multimedia.debug=false"));
}

void TestImageEditProvider::init()
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

void TestImageEditProvider::cleanup()
{
    handler->editReset();
    client.reset();
    engine.reset();
}

QVariantList TestImageEditProvider::seen(const QString& kind) const
{
    QVariantList result;
    for (const QVariant& entry : client->property("seen").value<QJSValue>().toVariant().toList())
        if (entry.toList().first() == kind)
            result += QVariant(entry.toList().mid(1));
    return result;
}

QVariant TestImageEditProvider::call(const char* function, const QVariantList& arguments)
{
    QVariant result;
    const auto argument = [&](int i) {
        return i < arguments.size() ? Q_ARG(QVariant, arguments[i]) : QGenericArgument();
    };
    QMetaObject::invokeMethod(client.get(), function, Q_RETURN_ARG(QVariant, result), argument(0),
                              argument(1));
    return result;
}

void TestImageEditProvider::editImage_takesOnly_whatItMayEdit()
{
    QImage image(80, 64, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    const QByteArray gif = QByteArray::fromBase64("R0lGODlhAQABAIAAAP///wAAACwAAAAAAQABAAACAkQBADs=");
    const QByteArray png = ImageBytes::encoded(image, "PNG");
    for (const auto& [what, content, name, is_taken] :
         {std::tuple("PNG", png, "a.png", true),
          {"JPEG", ImageBytes::encoded(image, "JPEG"), "a", true},
          {"BMP called GIF", ImageBytes::encoded(image, "BMP"), "a.gif", true},
          {"PNG cut short", png.left(png.size() / 2), "a.png", true},
          {"GIF called PNG", gif, "a.png", false},
          {"GIF and PNG", gif + png, "a.png", false},
          {"PPM", ImageBytes::encoded(image, "PPM"), "a.png", false},
          {"nothing", QByteArray(), "a.png", false},
          {"PNG of 60000x60000", ImageBytes::boastfulPng(60000), "a.png", false},
          {"BMP of 20000x20000", ImageBytes::boastfulBmp(20000), "a.bmp", false}}) {
        const InCase in_case(what);
        writeFile(at(name), content);
        handler->editImage(sky(QStringLiteral("before.png"), {96, 96}));
        handler->setRotation(45.0);
        QSignalSpy sizes(handler, &ImageEditProvider::imageSizeChanged);
        const qint64 before = memoryOf("VmPeak");

        handler->editImage(at(name), QSize(3, 3));
        QCOMPARE(handler->srcPath(), at(is_taken ? name : "before.png"));
        QCOMPARE(handler->imageSize(), is_taken ? QSize(80, 64) : QSize(96, 96));
        QCOMPARE(handler->rotation(), is_taken ? 0.0 : 45.0);
        QCOMPARE(sizes.size(), is_taken ? 2 : 0); // reset, then set
        QVERIFY(memoryOf("VmPeak") - before < 500'000'000);
    }
}

void TestImageEditProvider::properties_tellChanges()
{
    call("set");
    call("set");
    handler->setRotation(90.0 * (1.0 + 1e-13)); // as good as the same
    QCOMPARE(seen("rotation"), QVariantList({QVariantList{90.0}}));
    QCOMPARE(seen("mirrored"), QVariantList({QVariantList{true}}));
    QCOMPARE(seen("mode"), QVariantList({QVariantList{8}}));
    QCOMPARE(seen("blur"), QVariantList({QVariantList{true}}));
    QCOMPARE(seen("canceled").size(), 2);
    handler->setRotation(1e-15);
    handler->setRotation(0.0); // nothing is nearly zero
    QCOMPARE(seen("rotation").size(), 3);
    for (int i = 0; i < 2; ++i)
        handler->setImageSize({3, 4});
    QCOMPARE(seen("size").size(), 1);
}

void TestImageEditProvider::editReset_restoresDefaults()
{
    handler->editImage(sky(QStringLiteral("sky.png")));
    handler->setFaceBlurEnabled(true);
    call("set");
    handler->editReset();
    QCOMPARE(handler->srcPath(), QString());
    QCOMPARE(handler->imageSize(), QSize(-1, -1));
    QCOMPARE(handler->rotation(), 0.0);
    QVERIFY(!handler->mirrored() && !handler->faceBlurEnabled() && !handler->faceBlur());
    QCOMPARE(handler->scaleMode(), ImageEditProvider::S_ORIGINAL);
    QCOMPARE(handler->faceBlurPath(), QString());
}

void TestImageEditProvider::thumbnails_areMade_whereNeeded()
{
    const QString large = sky(QStringLiteral("large.png"), {1280, 640});
    const QString thumb = handler->readThumbImage(QUrl::fromLocalFile(large).toString());
    QVERIFY(thumb.startsWith(temporary.path()) && thumb.endsWith(QLatin1String(".png")));
    QVERIFY(thumb != large);
    QCOMPARE(QImage(thumb).size(), QSize(640, 320));
    const QString small = sky(QStringLiteral("small.png"));
    QCOMPARE(handler->readThumbImage(small), small);
    QCOMPARE(handler->readThumbImage(at("nowhere.png")), at("nowhere.png"));

    const QString bytes = handler->readThumbBytes(thumb);
    QCOMPARE(QImage::fromData(QByteArray::fromBase64(bytes.toLatin1())).size(), QSize(32, 16));
    QCOMPARE(handler->readThumbBytes(at("nowhere.png")), QString());
}

void TestImageEditProvider::faceBlur_goesFromSearchToToggle()
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

    QVERIFY(patchBetween(original, QImage(blur_path)).contains(QRect(190, 85, 70, 75)));

    handler->faceMaskDetect(path);
    handler->faceMaskDetect(path);
    QCOMPARE(seen("blur"), QVariantList({QVariantList{true}, QVariantList{false}, QVariantList{true}}));
    QCOMPARE(seen("finished").size(), 1);
    QCOMPARE(handler->faceBlurPath(), blur_path);
}

void TestImageEditProvider::faceBlur_sitsOnFace_inEveryOrientation()
{
    const QImage upright = QImage(portrait()).copy(80, 0, 256, 240);
    const QTransform mirror(-1, 0, 0, 1, 0, 0);
    const QTransform left = QTransform().rotate(-90);
    // How a camera stores the picture for each orientation that it may tell.
    const std::array<QTransform, 8> stored = {QTransform(),  mirror, left * left,   mirror * left * left,
                                              mirror * left, left,   left * mirror, left * left * left};
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const InCase in_case(orientation);
        const QString path = at(QStringLiteral("%1.jpg").arg(orientation));
        const QImage source = upright.transformed(stored[orientation - 1]);
        writeFile(path, ImageBytes::turnedJpeg(source, char(orientation)));
        const auto shown = [](const QString& file) {
            QImageReader reader(file);
            reader.setAutoTransform(true);
            return reader.read();
        };
        const QImage before = shown(path);
        QVERIFY(patchBetween(upright, before).isEmpty()); // else the picture is not what it is called

        handler->editImage(path);
        QTRY_VERIFY_WITH_TIMEOUT(handler->faceBlurEnabled(), kPatience_ms);
        handler->faceMaskDetect(path);
        QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), orientation, kPatience_ms);
        const QRect patch = patchBetween(before, shown(handler->faceBlurPath()));
        QVERIFY2(patch.contains(QRect(110, 85, 70, 75)) && QRect(70, 35, 145, 185).contains(patch),
                 qPrintable(QStringLiteral("%1,%2 %3x%4")
                                .arg(patch.x())
                                .arg(patch.y())
                                .arg(patch.width())
                                .arg(patch.height())));
        // A client that does not obey EXIF data sees the blur on the picture that it knows.
        QVERIFY(!patchBetween(source, QImage(handler->faceBlurPath())).isEmpty());
        QCOMPARE(QImage(handler->faceBlurPath()).size(), source.size());
        QCOMPARE(QImageReader(handler->faceBlurPath()).transformation(), QImageReader(path).transformation());
    }
}

void TestImageEditProvider::faceMaskDetect_copiesPicture_whenItHasNoFace()
{
    // Too small to hold a face.
    const QString path = sky(QStringLiteral("sky.png"), {16, 16});
    QSignalSpy searched(handler, &ImageEditProvider::faceBlurEnabledChanged);
    handler->setFaceBlurEnabled(true);
    handler->editImage(path);
    QTRY_COMPARE_WITH_TIMEOUT(searched.size(), 2, kPatience_ms);
    QVERIFY(!handler->faceBlurEnabled());

    handler->faceMaskDetect(path);
    QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 1, kPatience_ms);
    QVERIFY(seen("finished").first().toList()[2].toBool());
    QCOMPARE(QImage(handler->faceBlurPath()), QImage(path));
}

void TestImageEditProvider::faceSearch_andBlur_areOver_withTheirEdit()
{
    const QString path = portrait();
    handler->editImage(path);
    handler->faceMaskDetect(path);
    handler->editReset();
    QThreadPool::globalInstance()->waitForDone();
    QTRY_COMPARE(seen("finished").size(), 1);
    QVERIFY(seen("enabled").isEmpty() && seen("blur").isEmpty());

    // Nor does the same picture, edited anew, get the blur of before.
    handler->editImage(path);
    handler->faceMaskDetect(path);
    handler->editReset();
    handler->editImage(path);
    QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 2, kPatience_ms);
    QTRY_COMPARE_WITH_TIMEOUT(seen("enabled"), QVariantList({QVariantList{true}}), kPatience_ms);
    QVERIFY(seen("blur").isEmpty() && seen("path").isEmpty());
}

void TestImageEditProvider::faceMaskDetect_changesNothing_whenPictureIsLeft()
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

void TestImageEditProvider::faceMaskDetect_runsOneJob_whenAskedTwice()
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

void TestImageEditProvider::faceMaskDetect_servesNextRequest_fromTheReport()
{
    const QString path = sky(QStringLiteral("sky.bmp"));
    for (int i = 1; i <= 20; ++i) {
        client->setProperty("next", path);
        handler->faceMaskDetect(path);
        QTRY_COMPARE_WITH_TIMEOUT(seen("finished").size(), 2 * i, kPatience_ms);
    }
}

void TestImageEditProvider::faceMaskDetect_reportsFailure_whenPictureIsCut()
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

void TestImageEditProvider::doEditSync_andOthers_areCallable()
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

QTEST_GUILESS_MAIN(TestImageEditProvider)
#include "test_imageeditprovider.moc"
