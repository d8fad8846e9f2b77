#include "quillon/convertfilefilter.h"
#include "quillon/editfilefilter.h"
#include "quillon/editstate.h"
#include "quillon/graphicdefines.h"
#include "quillon/quillonlog.h"
#include "quillon/util.h"
#include "tests/support/files.h"
#include "tests/support/imagebytes.h"
#include "tests/support/row.h"

#include <QtGui/QImage>
#include <QtTest/QtTest>

#include <limits>
#include <thread>

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
    void toLocalFile_takesUrlsAndPaths_data();
    void toLocalFile_takesUrlsAndPaths();
    void files_areSeenAndRemoved_butNoFolders();
    void newFile_givesFreeName_besideTakenOnes_data();
    void newFile_givesFreeName_besideTakenOnes();
    void newFile_givesEveryNameOnce_toManyThreads();
    void scaleThumbImage_keepsAspectAndOrientation_data();
    void scaleThumbImage_keepsAspectAndOrientation();
    void scaleThumb_refuses_whatItCannotScale_data();
    void scaleThumb_refuses_whatItCannotScale();
    void scaleThumbBytes_givesPngAsText();
    void metaTypes_haveTheirNames();
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

void TestQuillon::toLocalFile_takesUrlsAndPaths_data()
{
    columns<QString, QString>("given", "path");
    row("url", "file:///tmp/a%20b%23c.mp4", "/tmp/a b#c.mp4");
    row("url in capitals", "FILE:///tmp/a.mp4", "/tmp/a.mp4");
    row("resource", "qrc:/images/a.png", ":/images/a.png");
    row("path", "/tmp/a%20b#c?.mp4", "/tmp/a%20b#c?.mp4");
    row("path with colon", "a:b.mp4", "a:b.mp4");
    row("empty", "", "");
}

void TestQuillon::toLocalFile_takesUrlsAndPaths()
{
    QFETCH(QString, given);
    QTEST(Util::toLocalFile(given), "path");
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

void TestQuillon::newFile_givesFreeName_besideTakenOnes_data()
{
    columns<QStringList, QString, QString>("taken", "wanted", "given");
    row("free", QStringList(), "free.mp4", "free.mp4");
    row("taken", QStringList("one.mp4"), "one.mp4", "one (1).mp4");
    row("taken twice", QStringList({"two.mp4", "two (1).mp4"}), "two.mp4", "two (2).mp4");
    row("inner dots", QStringList("a.tar.gz"), "a.tar.gz", "a.tar (1).gz");
    row("no suffix", QStringList("plain"), "plain", "plain (1)");
    row("hidden", QStringList(".hidden"), ".hidden", ".hidden (1)");
    row("dot at end", QStringList("end."), "end.", "end. (1)");
}

void TestQuillon::newFile_givesFreeName_besideTakenOnes()
{
    QFETCH(QStringList, taken);
    QFETCH(QString, wanted);
    for (const QString& name : taken)
        writeFile(at(name), "x");
    QTEST(QFileInfo(Util::newFile(at(wanted))).fileName(), "given");

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

void TestQuillon::scaleThumbImage_keepsAspectAndOrientation_data()
{
    columns<QSize, bool, bool, QSize>("stored", "turned", "always", "expected");
    row("wide", QSize(1280, 320), false, false, QSize(640, 160));
    row("high", QSize(800, 1600), false, false, QSize(320, 640));
    row("turned", QSize(1280, 320), true, false, QSize(160, 640));
    row("needle", QSize(3000, 1), false, false, QSize(640, 1));
    row("small", QSize(640, 640), false, false, QSize());
    row("small, always", QSize(64, 40), false, true, QSize(64, 40));
}

void TestQuillon::scaleThumbImage_keepsAspectAndOrientation()
{
    QFETCH(QSize, stored);
    QFETCH(bool, turned);
    QFETCH(bool, always);
    QFETCH(QSize, expected);
    const QString source = at("source.jpg");
    const QString target = at("target.png");
    QFile::remove(target);
    writeFile(source,
              turned ? ImageBytes::turnedJpeg(marked(stored)) : ImageBytes::encoded(marked(stored), "JPEG"));

    QCOMPARE(Util::instance()->scaleThumbImage(source, target, {640, 640}, 640, always), expected.isValid());
    QCOMPARE(QFile::exists(target), expected.isValid());
    if (!expected.isValid())
        return;
    const QImage thumb(target);
    QCOMPARE(thumb.size(), expected);
    if (stored.height() > 1) {
        const int mark_x = turned ? thumb.width() * 3 / 4 : thumb.width() / 4;
        QVERIFY(thumb.pixelColor(mark_x, thumb.height() / 4).red() > 200);
        QVERIFY(thumb.pixelColor(thumb.width() - 1 - mark_x, thumb.height() / 4).red() < 50);
        QVERIFY(thumb.pixelColor(mark_x, thumb.height() * 3 / 4).red() < 50);
    }
}

void TestQuillon::scaleThumb_refuses_whatItCannotScale_data()
{
    columns<QByteArray, QString, bool>("content", "target", "readable");
    const QByteArray good = ImageBytes::encoded(marked({800, 600}), "PNG");
    row("60000x60000", ImageBytes::boastfulBmp(60000), "thumb.png", false);
    row("empty", QByteArray(), "thumb.png", false);
    row("text", QByteArray(1000, 'x'), "thumb.png", false);
    row("cut short", good.left(good.size() / 2), "thumb.png", false);
    row("unknown suffix", good, "thumb.xyz", true);
    row("no such folder", good, "missing/thumb.png", true);
}

void TestQuillon::scaleThumb_refuses_whatItCannotScale()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, target);
    writeFile(at("bad.png"), content);
    QVERIFY(!Util::instance()->scaleThumbImage(at("bad.png"), at(target), {640, 640}, 640, false));
    QVERIFY(!QFile::exists(at(target)));
    QByteArray bytes("old");
    QFETCH(bool, readable);
    QCOMPARE(Util::scaleThumbBytes(at("bad.png"), 32, bytes), readable);
    QCOMPARE(bytes.isEmpty(), !readable);
}

void TestQuillon::scaleThumbBytes_givesPngAsText()
{
    QVERIFY(marked({400, 100}).save(at("wide.png")));
    QByteArray bytes;
    QVERIFY(Util::scaleThumbBytes(at("wide.png"), 32, bytes));
    QVERIFY(!bytes.contains('\0'));
    const QImage thumb = QImage::fromData(QByteArray::fromBase64(bytes));
    QCOMPARE(thumb.size(), QSize(32, 8));
    QCOMPARE(thumb.pixelColor(0, 0), QColor(Qt::red));
    QCOMPARE(thumb.pixelColor(31, 7), QColor(Qt::blue));
}

void TestQuillon::metaTypes_haveTheirNames()
{
    QCOMPARE(QMetaType::typeName(qMetaTypeId<EditFileFilterPtr>()), "EditFileFilterPtr");
    QCOMPARE(QMetaType::typeName(qMetaTypeId<ConvertFileFilterPtr>()), "ConvertFileFilterPtr");
    QCOMPARE(QMetaType::typeName(qMetaTypeId<EditState>()), "EditState");
    QVERIFY(GraphicDefines::staticMetaObject.indexOfEnumerator("GraphicType") >= 0);
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
