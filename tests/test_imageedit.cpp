#include "multimedia/imageedit/editdescription.h"
#include "multimedia/imageedit/imageeditprovider.h"
#include "multimedia/imageedit/imageedittask.h"
#include "tests/support/colour.h"
#include "tests/support/files.h"
#include "tests/support/imagebytes.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/process.h"
#include "tests/support/underway.h"

#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtTest/QtTest>

#include <optional>

using ImageEdit::EditDescription;
using ImageEdit::ImageEditProvider;
using ImageEdit::ImageEditTask;

namespace {

/// Makes this program another one, which is to be ended at work.
constexpr auto kEndWhileEditing = "--end-while-editing";

/// No two pixels alike, so that a turn, a mirror or a shift by one pixel shows.
QImage pattern(const QSize& size, int blue)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            image.setPixel(x, y, qRgb(x * 2, y * 2, blue));
    return image;
}

/// Red and green above, blue and white below.
QImage corners(const QSize& size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    const QSize half = size / 2;
    painter.fillRect(0, 0, half.width(), half.height(), Qt::red);
    painter.fillRect(half.width(), 0, half.width(), half.height(), Qt::green);
    painter.fillRect(0, half.height(), half.width(), half.height(), Qt::blue);
    return image;
}

/// By quarters, counter-clockwise.
QImage turned(const QImage& image, int quarters)
{
    return image.transformed(QTransform().rotate(90 * ((4 - quarters % 4) % 4)));
}

QRect fractionOf(const QSize& size, const QRectF& part)
{
    return QRectF(part.x() * size.width(), part.y() * size.height(), part.width() * size.width(),
                  part.height() * size.height())
        .toRect();
}

QVariantMap cropped(const QRectF& part, QVariantMap others = {})
{
    others.insert("x1", part.left());
    others.insert("y1", part.top());
    others.insert("x2", part.x() + part.width());
    others.insert("y2", part.y() + part.height());
    return others;
}

/// A picture that takes its time to be read and saved.
QByteArray noisyPng()
{
    QImage image(1500, 1500, QImage::Format_RGB32);
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(image.bits()), 1500 * 1500);
    return ImageBytes::encoded(image, "PNG");
}

} // namespace

class TestImageEdit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cropRect_followsTable();
    void edit_showsWhatUserSaw();
    void maskPhoto_isCropped_onlyBySyncEdit();
    void edit_limitsLongSide();
    void edit_takesEveryKindOfPicture();
    void edit_fails_whenFileIsBad();
    void edit_keepsFiles_whenItFails();
    void task_reportsCancelled_andLeavesFilesAsTheyWere();
    void edits_endWithTheApplication();
    void cancelEdit_endsTheLaterEdit_afterTheEarlierOne();
    void doEdit_refusesRequest_withoutFile();

private:
    /// Edits a picture, and holds the result against the same done pixel by pixel.
    void compareWithSeen(int turns, bool mirrored, const QRectF& part, bool drawn);
    QString at(const QString& name) const { return folder->filePath(name); }
    int editInPool(const QString& source, const QString& target, const QVariantMap& info);
    bool editAtOnce(const QString& source, QString target, const QVariantMap& info)
    {
        return provider->doEditSync(source, target, info);
    }

    QTemporaryDir temporary;
    std::optional<QTemporaryDir> folder;
    ImageEditProvider* provider = nullptr;
};

void TestImageEdit::initTestCase()
{
    // What the library leaves in the temporary location goes with this folder.
    QVERIFY(temporary.isValid());
    qputenv("TMPDIR", temporary.path().toLocal8Bit());
    provider = ImageEditProvider::instance();
}

void TestImageEdit::init()
{
    folder.emplace();
    QVERIFY(folder->isValid());
    provider->editReset();
}

int TestImageEdit::editInPool(const QString& source, const QString& target, const QVariantMap& info)
{
    BaseFile file("id", source);
    int stage = -1;
    int code = -1;
    auto filter = EditFileFilterPtr::create();
    filter->file = &file;
    filter->savePath = target;
    filter->editInfo = info;
    filter->clipCallback = [&](int told_stage, int told_code) {
        stage = told_stage;
        code = told_code;
    };
    provider->doEdit(filter);
    // The object must outlive the edit even if it takes long.
    while (code < 0)
        QTest::qWait(1);
    [&] { QCOMPARE(stage, 5); }();
    return code;
}

void TestImageEdit::cropRect_followsTable()
{
    // 200 x 100, from (0.29, 0.3) to (0.8, 0.71): truncated, also where binary fractions fall just short.
    QVariantMap info{{"x1", 0.29}, {"y1", 0.3}, {"x2", 0.8}, {"y2", 0.71}};
    for (const auto& [turns, mirrored, expected] : {std::tuple(0, false, QRect(57, 30, 102, 41)),
                                                    {1, false, QRect(58, 28, 82, 51)},
                                                    {2, false, QRect(39, 29, 102, 41)},
                                                    {3, false, QRect(60, 19, 82, 51)},
                                                    {4, false, QRect(0, 0, 102, 41)},
                                                    {-1, false, QRect(0, 0, 102, 41)},
                                                    {0, true, QRect(41, 30, 102, 41)},
                                                    {1, true, QRect(60, 28, 82, 51)},
                                                    {2, true, QRect(59, 29, 102, 41)},
                                                    {3, true, QRect(58, 19, 82, 51)},
                                                    {7, true, QRect(98, 0, 102, 41)}}) {
        const InCase in_case(turns, mirrored);
        info.insert("revolvecount", turns);
        info.insert("mirrored", mirrored);
        QCOMPARE(EditDescription(info).cropRect({200, 100}), expected);
        QVariantMap hostile = info;
        hostile.insert("x1", -1e300);
        hostile.insert("y2", qQNaN());
        QVERIFY(EditDescription(hostile).cropRect({200, 100}).width() >= 0); // and no overflow
    }
    QCOMPARE(EditDescription({}).cropRect({200, 100}), QRect(0, 0, 0, 0));
}

void TestImageEdit::edit_showsWhatUserSaw()
{
    for (const int turns : {0, 1, 2, 3, 4, 5, -1})
        for (const bool mirrored : {false, true})
            for (const bool drawn : {false, true})
                for (const QRectF& part : {QRectF(0, 0, 1, 1), {0.25, 0.125, 0.5, 0.75}}) {
                    const InCase in_case(turns, mirrored, part, drawn);
                    // Outside 0 to 3 a drawing would be stretched over a cut of another shape.
                    if (!drawn || part.width() == 1 || (turns >= 0 && turns < 4))
                        compareWithSeen(turns, mirrored, part, drawn);
                }
}

void TestImageEdit::compareWithSeen(int turns, bool mirrored, const QRectF& part, bool drawn)
{
    const QImage source = pattern({64, 48}, 7);
    QVERIFY(source.save(at("source.png")));

    QImage expected;
    if (turns >= 0 && turns < 4) {
        const QImage seen = turned(source.mirrored(mirrored, false), turns);
        expected = seen.copy(fractionOf(seen.size(), part));
    } else { // cut from the corner, and turned all the same
        const QSize size = fractionOf(source.size(), part).size();
        const QImage cut = source.copy(mirrored ? 64 - size.width() : 0, 0, size.width(), size.height());
        expected = turned(cut.mirrored(mirrored, false), turns);
    }
    QVariantMap info{{"revolvecount", turns}, {"mirrored", mirrored}};
    // A drawing in the pixels that the user sees, of which the lower half is left free.
    const QSize seen_size = turns % 2 ? QSize(48, 64) : QSize(64, 48);
    QImage drawing(seen_size, QImage::Format_ARGB32);
    drawing.fill(Qt::transparent);
    QPainter(&drawing).drawImage(0, 0, pattern({seen_size.width(), seen_size.height() / 2}, 200));
    if (drawn) {
        QPainter(&expected).drawImage(0, 0, drawing.copy(fractionOf(drawing.size(), part)));
        info.insert("editedImagePath",
                    mirrored ? at("drawing.png") : QUrl::fromLocalFile(at("drawing.png")).toString());
    }

    for (bool in_pool : {false, true}) {
        const QString target = at(in_pool ? "pool.png" : "sync.png");
        QVERIFY(drawing.save(at("drawing.png")));
        if (in_pool)
            QCOMPARE(editInPool(at("source.png"), target, cropped(part, info)), 0);
        else
            QVERIFY(editAtOnce(at("source.png"), target, cropped(part, info)));
        QCOMPARE(QImage(target).convertToFormat(expected.format()), expected);
        QCOMPARE(QFile::exists(at("drawing.png")), !drawn);
    }
}

void TestImageEdit::maskPhoto_isCropped_onlyBySyncEdit()
{
    const QImage blurred = pattern({3000, 20}, 99);
    QVERIFY(pattern({64, 48}, 7).save(at("source.png")));
    QVERIFY(blurred.save(at("blurred.png")));
    const QRectF right_half(0.5, 0.0, 0.5, 1.0);
    QVariantMap info = cropped(right_half, {{"mirrored", true}, {"revolvecount", 2}});
    info.insert("maskPhotoPath", at("blurred.png"));

    // Not wanted: the source is used.
    QVERIFY(editAtOnce(at("source.png"), at("out.png"), info));
    QCOMPARE(QImage(at("out.png")).size(), QSize(32, 48));

    info.insert("needMaskPhoto", true);
    const QImage seen = turned(blurred.mirrored(true, false), 2);
    QVERIFY(editAtOnce(at("source.png"), at("out.png"), info));
    QCOMPARE(QImage(at("out.png")), seen.copy(1500, 0, 1500, 20));
    QCOMPARE(editInPool(at("source.png"), at("out.png"), info), 0);
    QCOMPARE(QImage(at("out.png")), seen);

    info.insert("maskPhotoPath", QString()); // wanted, but there is none
    QCOMPARE(editInPool(at("source.png"), at("out.png"), info), 0);
    QCOMPARE(QImage(at("out.png")).size(), QSize(32, 48));
}

void TestImageEdit::edit_limitsLongSide()
{
    const QRectF whole(0, 0, 1, 1);
    for (const auto& [size, part, expected] : {std::tuple(QSize(5120, 2560), whole, QSize(2560, 1280)),
                                               {QSize(1000, 3001), whole, QSize(853, 2560)},
                                               {QSize(2560, 200), whole, QSize(2560, 200)},
                                               {QSize(5120, 100), QRectF(0.25, 0, 0.5, 1), QSize(2560, 100)},
                                               {QSize(8000, 2), whole, QSize(2560, 1)}}) {
        const InCase in_case(size, part);
        for (const QString format : {"png", "jpg"}) {
            const QString source = at("source." + format);
            QVERIFY(corners(size).save(source, nullptr, 100));
            QCOMPARE(editInPool(source, at("out.png"), cropped(part)), 0);
            const QImage result(at("out.png"));
            QCOMPARE(result.size(), expected);
            if (expected.height() < 50)
                continue;
            const QImage wanted = corners(expected);
            for (const int x : {5, expected.width() - 5})
                for (const int y : {5, expected.height() - 5})
                    QVERIFY(isNear(result.pixelColor(x, y), wanted.pixelColor(x, y)));
        }
    }
}

void TestImageEdit::edit_takesEveryKindOfPicture()
{
    const QImage image = corners({40, 20});
    const QByteArray png = ImageBytes::encoded(image, "PNG");
    const auto as = [&](QImage::Format format) {
        return ImageBytes::encoded(image.convertToFormat(format), "PNG");
    };
    for (const auto& [kind, content, name, expected] :
         {std::tuple("1 pixel", ImageBytes::encoded(image.copy(0, 0, 1, 1), "PNG"), "a.png", QSize(1, 1)),
          {"16 bits", as(QImage::Format_RGBA64), "a.png", QSize(40, 20)},
          {"indexed", as(QImage::Format_Indexed8), "a.png", QSize(40, 20)},
          {"mono", as(QImage::Format_Mono), "a.png", QSize(40, 20)},
          {"grey", as(QImage::Format_Grayscale8), "a.png", QSize(40, 20)},
          {"16 bits grey", as(QImage::Format_Grayscale16), "a.png", QSize(40, 20)},
          {"PNG called JPEG", png, "a.jpg", QSize(40, 20)},
          {"asks for double pixels", png, "a@2x.png", QSize(40, 20)},
          {"asks for no pixels", png, "a@0x.png", QSize(40, 20)},
          {"PNG and a web page", png + "<html><script>1</script>", "a.html", QSize(40, 20)},
          {"EXIF turn is not carried out", ImageBytes::turnedJpeg(image), "a.jpg", QSize(40, 20)},
          {"CMYK", contentOf(dataFile("imageedit/cmyk.jpg")), "a.jpg", QSize(32, 16)}}) {
        const InCase in_case(kind);
        writeFile(at(name), content);
        QImage drawing(expected, QImage::Format_ARGB32);
        drawing.fill(Qt::transparent);
        drawing.setPixelColor(expected.width() - 1, expected.height() - 1, Qt::cyan);
        for (bool in_pool : {false, true}) {
            QFile::remove(at("out.png")); // of the one before
            QVERIFY(drawing.save(at("drawing@3x.png")));
            const QVariantMap info = cropped({0, 0, 1, 1}, {{"editedImagePath", at("drawing@3x.png")}});
            if (in_pool)
                QCOMPARE(editInPool(QUrl::fromLocalFile(at(name)).toString(), at("out.png"), info), 0);
            else
                QVERIFY2(editAtOnce(at(name), at("out.png"), info), kind);
            const QImage result(at("out.png"));
            QCOMPARE(result.size(), expected);
            QCOMPARE(result.pixelColor(expected.width() - 1, expected.height() - 1), QColor(Qt::cyan));
            if (expected.width() == 1)
                continue;
            const QColor corner = result.pixelColor(2, 2);
            const QImage source = QImage::fromData(content);
            if (source.allGray()) {
                QCOMPARE(corner.rgb(), source.pixelColor(2, 2).rgb());
                continue;
            }
            QVERIFY(corner.red() > 190 && corner.green() < 50 && corner.blue() < 50);
            QVERIFY(result.pixelColor(expected.width() - 4, 3) != corner);
        }
    }
}

void TestImageEdit::edit_fails_whenFileIsBad()
{
    const QVariantMap whole = cropped({0, 0, 1, 1});
    const QByteArray png = ImageBytes::encoded(pattern({100, 100}, 3), "PNG");
    writeFile(at("good.png"), png);
    for (const auto& [content, info] : {std::pair(QByteArray(), whole),
                                        {QByteArray(5000, 'x'), whole},
                                        {png.left(png.size() / 2), whole},
                                        {png.left(33), whole}, // its header
                                        {ImageBytes::boastfulPng(60000), whole},
                                        {ImageBytes::boastfulPng(20000), whole},
                                        {ImageBytes::boastfulBmp(60000), whole},
                                        {ImageBytes::boastfulBmp(20000), cropped({0, 0, 0.001, 0.001})},
                                        {png, cropped({0, 0, 1e9, 1e9})}}) {
        const InCase in_case(content.size(), info);
        writeFile(at("bad.png"), content);
        const qint64 before = memoryOf("VmPeak");
        QCOMPARE(editInPool(at("bad.png"), at("out.png"), info), 2);
        QVERIFY(!editAtOnce(at("bad.png"), at("out.png"), info));
        QVariantMap masked = info;
        masked.insert("needMaskPhoto", true);
        masked.insert("maskPhotoPath", at("bad.png"));
        QVERIFY(!editAtOnce(at("good.png"), at("out.png"), masked));
        if (info == whole)
            QCOMPARE(editInPool(at("good.png"), at("out.png"), masked), 2);
        QVERIFY(!QFile::exists(at("out.png")));
        QVERIFY(memoryOf("VmPeak") - before < 500'000'000);
    }
}

void TestImageEdit::edit_keepsFiles_whenItFails()
{
    const QByteArray old("what was here before");
    QVERIFY(corners({40, 20}).save(at("source.png")));
    writeFile(at("drawing.png"), ImageBytes::boastfulPng(60000));
    QVariantMap info = cropped({0, 0, 1, 1}, {{"editedImagePath", at("drawing.png")}});

    // A drawing that cannot be read is left where it is.
    const LogCapture log;
    QVERIFY(editAtOnce(at("source.png"), at("out.png"), info));
    QCOMPARE(QImage(at("out.png")), corners({40, 20}));
    QVERIFY(QFile::exists(at("drawing.png")));
    QCOMPARE(log.count("[drawOverlay]:\tcannot read the drawing"), 1);
    QCOMPARE(log.count("[readImage]:\tpicture has over 100 megapixels"), 1);

    // It is gone once it was drawn, even if the save fails; and what the target's place held stays.
    for (const QString& target : {at("missing/out.png"), at("out.unknown")}) {
        QVERIFY(corners({40, 20}).save(at("drawing.png")));
        writeFile(at("out.unknown"), old);
        QCOMPARE(editInPool(at("source.png"), target, info), 2);
        QVERIFY(!QFile::exists(at("drawing.png")));
        QCOMPARE(contentOf(at("out.unknown")), old);
    }
    // Nothing was drawn on a picture that cannot be read.
    QVERIFY(corners({40, 20}).save(at("drawing.png")));
    QCOMPARE(editInPool(at("nowhere.png"), at("other.png"), info), 2);
    QVERIFY(QFile::exists(at("drawing.png")));
    // A file may be edited into itself.
    QVERIFY(editAtOnce(at("source.png"), at("source.png"), cropped({0, 0, 0.5, 0.5})));
    QCOMPARE(QImage(at("source.png")).size(), QSize(20, 10));
}

void TestImageEdit::task_reportsCancelled_andLeavesFilesAsTheyWere()
{
    QVERIFY(corners({40, 20}).save(at("source.png")));
    const BaseFile file("id", at("source.png"));
    auto filter = EditFileFilterPtr::create();
    filter->file = const_cast<BaseFile*>(&file);
    filter->savePath = at("out.png");
    filter->editInfo = cropped({0, 0, 1, 1});
    ImageEditTask task(filter);
    QSignalSpy spy(&task, &ImageEditTask::editFinish);
    task.run();
    QCOMPARE(spy.takeFirst().at(1).toInt(), 0);
    QVERIFY(QFile::remove(at("out.png")));

    task.cancel();
    task.run();
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.first().at(0).value<EditFileFilterPtr>(), filter);
    QCOMPARE(spy.first().at(1).toInt(), 1);
    QVERIFY(!QFile::exists(at("out.png")));

    // Cancelled while it is saved in the place of its own source.
    const QByteArray source = noisyPng();
    writeFile(at("source.png"), source);
    filter->savePath = at("source.png");
    ImageEditTask saving(filter);
    QSignalSpy report(&saving, &ImageEditTask::editFinish);
    const std::unique_ptr<QThread> thread(QThread::create([&] { saving.run(); }));
    thread->start();
    while (!isUnderWay(folder->path()) && !thread->isFinished())
        QThread::yieldCurrentThread();
    saving.cancel();
    QVERIFY(thread->wait());
    QCOMPARE(report.first().at(1).toInt(), 1);
    QCOMPARE(contentOf(at("source.png")), source);
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files).size(), 1);
}

/// Begins an edit, and ends the program while the result is saved.
static int endWhileEditing(int argc, char** argv)
{
    const BaseFile file("id", QString::fromLocal8Bit(argv[2]));
    const QCoreApplication application(argc, argv);
    auto filter = EditFileFilterPtr::create();
    filter->file = const_cast<BaseFile*>(&file);
    filter->savePath = QString::fromLocal8Bit(argv[3]);
    filter->editInfo = cropped({0, 0, 1, 1});
    ImageEditProvider::instance()->doEdit(filter);
    while (!isUnderWay(QFileInfo(file.filePath()).path()))
        QThread::yieldCurrentThread();
    return QFile::exists(filter->savePath) ? 1 : 0;
}

void TestImageEdit::edits_endWithTheApplication()
{
    writeFile(at("source.png"), noisyPng());
    QProcess program;
    program.start(QCoreApplication::applicationFilePath(),
                  {kEndWhileEditing, at("source.png"), at("out.png")});
    QVERIFY(program.waitForFinished());
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QVERIFY2(program.exitCode() == 0, program.readAllStandardError().constData());
    QCOMPARE(QImage(at("out.png")), QImage(at("source.png")));
}

void TestImageEdit::cancelEdit_endsTheLaterEdit_afterTheEarlierOne()
{
    QVERIFY(corners({300, 200}).save(at("quick.png")));
    writeFile(at("slow.png"), noisyPng());
    BaseFile quick("id", at("quick.png"));
    BaseFile slow("id", at("slow.png"));
    QMap<BaseFile*, int> codes;
    for (BaseFile* file : {&quick, &slow}) {
        auto filter = EditFileFilterPtr::create();
        filter->file = file;
        filter->savePath = at(file == &quick ? "quick-out.png" : "slow-out.png");
        filter->editInfo = cropped({0, 0, 1, 1});
        filter->clipCallback = [&codes, file](int, int code) { codes[file] = code; };
        provider->doEdit(filter);
    }
    QTRY_COMPARE(codes, (QMap<BaseFile*, int>{{&quick, 0}}));
    QCOMPARE(provider->cancelEdit("id"), EditState::Cancelled);
    QTRY_COMPARE(codes, (QMap<BaseFile*, int>{{&quick, 0}, {&slow, 1}}));
    QVERIFY(QFile::exists(at("quick-out.png")) && !QFile::exists(at("slow-out.png")));
    QCOMPARE(provider->cancelEdit("id"), EditState::None);
    QCOMPARE(provider->cancelEdit("never seen"), EditState::None);
}

void TestImageEdit::doEdit_refusesRequest_withoutFile()
{
    const LogCapture log;
    provider->doEdit({});
    provider->doEdit(EditFileFilterPtr::create());
    QCOMPARE(log.count("[doEdit]:\trequest names no file"), 2);
}

int main(int argc, char** argv)
{
    if (argc == 4 && qstrcmp(argv[1], kEndWhileEditing) == 0)
        return endWhileEditing(argc, argv);
    QCoreApplication application(argc, argv);
    TestImageEdit test;
    return QTest::qExec(&test, argc, argv);
}
#include "test_imageedit.moc"
