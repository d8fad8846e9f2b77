#include "quillon/quillonlog.h"
#include "quillon/util.h"
#include "tests/support/files.h"
#include "tests/support/imagebytes.h"
#include "tests/support/incase.h"

#include <QtGui/QImage>
#include <QtTest/QtTest>

#include <limits>
#include <thread>
#include <tuple>
#include <utility>

/// A picture whose top left corner alone is red.
static QImage marked(const QSize& size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::blue);
    for (int y = 0; y < size.height() / 2; ++y)
        for (int x = 0; x < size.width() / 2; ++x)
            image.setPixelColor(x, y, Qt::red);
    return image;
}

class TestQuillon : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QVERIFY(folder.isValid()); }
    void ids_areSafeInFileNames_andDiffer();
    void generateRand_staysBetween_inEitherOrder();
    void toLocalFile_takesUrlsAndPaths();
    void files_areSeenAndRemoved_butNoFolders();
    void newFile_givesFreeName_besideTakenOnes();
    void newFile_givesEveryNameOnce_toManyThreads();
    void scaleThumbImage_keepsAspectAndOrientation();
    void scaleThumb_refuses_whatItCannotScale();
    void log_writesText();

private:
    QString at(const QString& name) const { return folder.filePath(name); }
    QTemporaryDir folder;
};

void TestQuillon::ids_areSafeInFileNames_andDiffer()
{
    const Util* util = Util::instance();
    const QRegularExpression safe(QStringLiteral("^[a-z0-9-]+$"));
    QSet<QString> seen;
    for (int i = 0; i < 1000; ++i) {
        const QString id = util->createTmpId(32);
        QCOMPARE(id.size(), 32);
        QVERIFY(safe.match(id).hasMatch());
        seen << id << Util::uuid();
        QVERIFY(safe.match(Util::uuid()).hasMatch());
    }
    QCOMPARE(seen.size(), 2000);
    QVERIFY(util->createTmpId(0).isEmpty());
    QVERIFY(util->createTmpId(-1).isEmpty());
}

void TestQuillon::generateRand_staysBetween_inEitherOrder()
{
    bool low_half = false;
    bool high_half = false;
    for (int i = 0; i < 1000; ++i) {
        const double value = i % 2 ? Util::generateRand(-3.0, 5.0) : Util::generateRand(5.0, -3.0);
        QVERIFY(value >= -3.0 && value <= 5.0);
        (value < 1.0 ? low_half : high_half) = true;
    }
    QVERIFY(low_half && high_half);
    QCOMPARE(Util::generateRand(2.5, 2.5), 2.5);
    const double huge = std::numeric_limits<double>::max();
    QVERIFY(std::isfinite(Util::generateRand(-huge, huge)));
}

void TestQuillon::toLocalFile_takesUrlsAndPaths()
{
    for (const auto& [given, path] : {std::pair("file:///tmp/a%20b%23c.mp4", "/tmp/a b#c.mp4"),
                                      {"FILE:///tmp/a.mp4", "/tmp/a.mp4"},
                                      {"qrc:/images/a.png", ":/images/a.png"},
                                      {"/tmp/a%20b#c?.mp4", "/tmp/a%20b#c?.mp4"},
                                      {"a:b.mp4", "a:b.mp4"},
                                      {"", ""}})
        QCOMPARE(Util::toLocalFile(given), QString(path));
}

void TestQuillon::files_areSeenAndRemoved_butNoFolders()
{
    writeFile(at("present"), "x");
    QVERIFY(Util::fileExists(at("present")));
    QVERIFY(Util::deleteFile(at("present")));
    QVERIFY(!Util::fileExists(at("present")));
    QVERIFY(!Util::deleteFile(at("present")));
    QVERIFY(!Util::fileExists(folder.path()));
    QVERIFY(!Util::deleteFile(folder.path()));
    QVERIFY(!Util::fileExists(QString()));
}

void TestQuillon::newFile_givesFreeName_besideTakenOnes()
{
    const std::vector<std::tuple<QStringList, QString, QString>> names = {
        {{}, "free.mp4", "free.mp4"},
        {{"one.mp4"}, "one.mp4", "one (1).mp4"},
        {{"two.mp4", "two (1).mp4"}, "two.mp4", "two (2).mp4"},
        {{"a.tar.gz"}, "a.tar.gz", "a.tar (1).gz"},
        {{"plain"}, "plain", "plain (1)"},
        {{".hidden"}, ".hidden", ".hidden (1)"},
        {{"end."}, "end.", "end. (1)"}};
    for (const auto& [taken, wanted, given] : names) {
        for (const QString& name : taken)
            writeFile(at(name), "x");
        QCOMPARE(QFileInfo(Util::newFile(at(wanted))).fileName(), given);
    }

    const QString dangling = at("dangling.mp4");
    QFile::link(at("nowhere"), dangling);
    QVERIFY(Util::newFile(dangling) != dangling);
}

void TestQuillon::newFile_givesEveryNameOnce_toManyThreads()
{
    std::vector<QString> names(200);
    std::vector<std::thread> threads;
    for (size_t first = 0; first < 4; ++first)
        threads.emplace_back([&, first] {
            for (size_t i = first; i < names.size(); i += 4) {
                names[i] = Util::newFile(at("crowd.txt"));
                if (i % 3 == 0)
                    writeFile(names[i], "x");
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(QSet<QString>(names.begin(), names.end()).size(), int(names.size()));
}

void TestQuillon::scaleThumbImage_keepsAspectAndOrientation()
{
    for (const auto& [stored, turned, always, expected] :
         {std::tuple(QSize(1280, 320), false, false, QSize(640, 160)),
          {QSize(800, 1600), false, false, QSize(320, 640)},
          {QSize(1280, 320), true, false, QSize(160, 640)},
          {QSize(3000, 1), false, false, QSize(640, 1)},
          {QSize(640, 640), false, false, QSize()},
          {QSize(64, 40), false, true, QSize(64, 40)}}) {
        const InCase in_case(stored, turned, always);
        const QString source = at("source.jpg");
        const QString target = at("target.png");
        QFile::remove(target);
        writeFile(source, turned ? ImageBytes::turnedJpeg(marked(stored))
                                 : ImageBytes::encoded(marked(stored), "JPEG"));

        QCOMPARE(Util::instance()->scaleThumbImage(source, target, {640, 640}, 640, always),
                 expected.isValid());
        QCOMPARE(QFile::exists(target), expected.isValid());
        if (!expected.isValid())
            continue;
        const QImage thumb(target);
        QCOMPARE(thumb.size(), expected);
        if (stored.height() > 1) {
            const int mark_x = turned ? thumb.width() * 3 / 4 : thumb.width() / 4;
            QVERIFY(thumb.pixelColor(mark_x, thumb.height() / 4).red() > 200);
            QVERIFY(thumb.pixelColor(thumb.width() - 1 - mark_x, thumb.height() / 4).red() < 50);
            QVERIFY(thumb.pixelColor(mark_x, thumb.height() * 3 / 4).red() < 50);
        }
    }
}

void TestQuillon::scaleThumb_refuses_whatItCannotScale()
{
    const QByteArray good = ImageBytes::encoded(marked({800, 600}), "PNG");
    for (const auto& [content, target, readable] :
         {std::tuple(ImageBytes::boastfulBmp(60000), "thumb.png", false),
          {QByteArray(), "thumb.png", false},
          {QByteArray(1000, 'x'), "thumb.png", false},
          {good.left(good.size() / 2), "thumb.png", false},
          {good, "thumb.xyz", true},
          {good, "missing/thumb.png", true}}) {
        const InCase in_case(content.size(), target);
        writeFile(at("bad.png"), content);
        QVERIFY(!Util::instance()->scaleThumbImage(at("bad.png"), at(target), {640, 640}, 640, false));
        QVERIFY(!QFile::exists(at(target)));
        QByteArray bytes("old");
        QCOMPARE(Util::scaleThumbBytes(at("bad.png"), 32, bytes), readable);
        QCOMPARE(bytes.isEmpty(), !readable);
    }
}

void TestQuillon::log_writesText()
{
    QTest::ignoreMessage(QtInfoMsg, "said \"so\"");
    QuillonLog::info("said \"so\"");
    QTest::ignoreMessage(QtCriticalMsg, "went wrong");
    QuillonLog::error("went wrong");
}

QTEST_GUILESS_MAIN(TestQuillon)
#include "test_quillon.moc"
