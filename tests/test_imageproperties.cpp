#include "multimedia/imageedit/imageeditprovider.h"
#include "tests/support/files.h"
#include "tests/support/imagebytes.h"
#include "tests/support/process.h"
#include "tests/support/row.h"

#include <QtGui/QImage>
#include <QtTest/QtTest>

#include <optional>

using ImageEdit::ImageEditProvider;

namespace {

QImage picture(const QSize& size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    return image;
}

} // namespace

/// The picture under edit and its properties, as native code sees them.
class TestImageProperties : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void editImage_takesOnly_whatItMayEdit_data();
    void editImage_takesOnly_whatItMayEdit();
    void setters_emit_onlyOnChange();
    void editReset_restoresDefaults();
    void thumbnails_areMade_whereNeeded();

private:
    QString at(const QString& name) const { return folder->filePath(name); }

    QTemporaryDir temporary;
    std::optional<QTemporaryDir> folder;
    ImageEditProvider* provider = nullptr;
};

void TestImageProperties::initTestCase()
{
    // What the library leaves in the temporary location goes with this folder.
    QVERIFY(temporary.isValid());
    qputenv("TMPDIR", temporary.path().toLocal8Bit());
    provider = ImageEditProvider::instance();
}

void TestImageProperties::init()
{
    folder.emplace();
    QVERIFY(folder->isValid());
    provider->editReset();
}

void TestImageProperties::editImage_takesOnly_whatItMayEdit_data()
{
    columns<QByteArray, QString>("content", "name");
    QTest::addColumn<QSize>("size"); ///< invalid if ignored
    const QImage image = picture({96, 64});
    const QByteArray gif = QByteArray::fromBase64("R0lGODlhAQABAIAAAP///wAAACwAAAAAAQABAAACAkQBADs=");
    const QByteArray png = ImageBytes::encoded(image, "PNG");
    QTest::newRow("PNG") << png << "a.png" << QSize(96, 64);
    QTest::newRow("JPEG") << ImageBytes::encoded(image, "JPEG") << "a" << QSize(96, 64);
    QTest::newRow("BMP called GIF") << ImageBytes::encoded(image, "BMP") << "a.gif" << QSize(96, 64);
    QTest::newRow("PNG cut short") << png.left(png.size() / 2) << "a.png" << QSize(96, 64);
    QTest::newRow("GIF called PNG") << gif << "a.png" << QSize();
    QTest::newRow("GIF and PNG") << gif + png << "a.png" << QSize();
    QTest::newRow("PPM") << ImageBytes::encoded(image, "PPM") << "a.png" << QSize();
    QTest::newRow("nothing") << QByteArray() << "a.png" << QSize();
    QTest::newRow("PNG of 60000x60000") << ImageBytes::boastfulPng(60000) << "a.png" << QSize();
    QTest::newRow("BMP of 20000x20000") << ImageBytes::boastfulBmp(20000) << "a.bmp" << QSize();
}

void TestImageProperties::editImage_takesOnly_whatItMayEdit()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, name);
    QFETCH(QSize, size);
    writeFile(at(name), content);
    QVERIFY(picture({80, 80}).save(at("before.png")));
    provider->editImage(at("before.png"));
    provider->setRotation(45.0);
    QSignalSpy sizes(provider, &ImageEditProvider::imageSizeChanged);
    const qint64 before = peakBytes();

    provider->editImage(at(name), QSize(3, 3));
    QCOMPARE(provider->srcPath(), at(size.isValid() ? name : "before.png"));
    QCOMPARE(provider->imageSize(), size.isValid() ? size : QSize(80, 80));
    QCOMPARE(provider->rotation(), size.isValid() ? 0.0 : 45.0);
    QCOMPARE(sizes.size(), size.isValid() ? 2 : 0); // reset, then set

    QVERIFY(peakBytes() - before < 500'000'000);
}

void TestImageProperties::setters_emit_onlyOnChange()
{
    QSignalSpy rotation(provider, &ImageEditProvider::rotationChanged);
    QSignalSpy size(provider, &ImageEditProvider::imageSizeChanged);
    for (int i = 0; i < 2; ++i) {
        provider->setImageSize({3, 4});
        provider->setRotation(90.0);
        provider->setRotation(90.0 * (1.0 + 1e-13)); // as good as the same
    }
    QCOMPARE(size.size(), 1);
    QCOMPARE(rotation.size(), 1);
    provider->setRotation(1e-15);
    provider->setRotation(0.0); // nothing is nearly zero
    QCOMPARE(rotation.size(), 3);
}

void TestImageProperties::editReset_restoresDefaults()
{
    QVERIFY(picture({96, 64}).save(at("source.png")));
    provider->editImage(at("source.png"));
    provider->setRotation(10.0);
    provider->setMirrored(true);
    provider->setScaleMode(ImageEditProvider::S_1_1);
    provider->setFaceBlurEnabled(true);
    provider->setFaceBlur(true);
    provider->editReset();
    QCOMPARE(provider->srcPath(), QString());
    QCOMPARE(provider->imageSize(), QSize(-1, -1));
    QCOMPARE(provider->rotation(), 0.0);
    QVERIFY(!provider->mirrored() && !provider->faceBlurEnabled() && !provider->faceBlur());
    QCOMPARE(provider->scaleMode(), ImageEditProvider::S_ORIGINAL);
    QCOMPARE(provider->faceBlurPath(), QString());
}

void TestImageProperties::thumbnails_areMade_whereNeeded()
{
    QVERIFY(picture({1280, 640}).save(at("large.png")));
    const QString thumb = provider->readThumbImage(QUrl::fromLocalFile(at("large.png")).toString());
    QVERIFY(thumb.startsWith(temporary.path()) && thumb.endsWith(QLatin1String(".png")));
    QVERIFY(thumb != at("large.png"));
    QCOMPARE(QImage(thumb).size(), QSize(640, 320));
    QVERIFY(picture({64, 64}).save(at("small.png")));
    QCOMPARE(provider->readThumbImage(at("small.png")), at("small.png"));
    QCOMPARE(provider->readThumbImage(at("nowhere.png")), at("nowhere.png"));

    const QString bytes = provider->readThumbBytes(thumb);
    QCOMPARE(QImage::fromData(QByteArray::fromBase64(bytes.toLatin1())).size(), QSize(32, 16));
    QCOMPARE(provider->readThumbBytes(at("nowhere.png")), QString());
}

QTEST_GUILESS_MAIN(TestImageProperties)
#include "test_imageproperties.moc"
