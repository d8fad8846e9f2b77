#include "multimedia/audioplayer/audioplayer.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/row.h"

#include <QtGui/QImage>
#include <QtGui/QImageReader>
#include <QtTest/QtTest>

namespace {
QStringList temporaryPictures()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation)).entryList({"*.jpg"});
}
} // namespace

/// What can be told of a file without playing it.
class TestPlayerInspection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void audioFormat_tellsFormat_byContent_data();
    void audioFormat_tellsFormat_byContent();
    void covers_areSaved_asJpeg();
    void getAlbumInfo_readsTags_thatAreThere();

private:
    QTemporaryDir folder;
};

void TestPlayerInspection::initTestCase()
{
    qputenv("TMPDIR", folder.path().toUtf8()); // covers go there
    QVERIFY(temporaryPictures().isEmpty());
}

void TestPlayerInspection::audioFormat_tellsFormat_byContent_data()
{
    // What the caller expects, and what it is told: no format if the file is refused.
    columns<QString, QString, QString, qint64>("name", "expected", "format", "duration_ms");
    const auto row = [](const char* name, const char* expected, const char* format, qint64 duration_ms) {
        QTest::addRow("%s as %s", name, expected)
            << QString::fromUtf8(name) << expected << format << duration_ms;
    };
    for (const char* type : {"mp3", "aac", "ogg", "wav", "ac3", "mp2"})
        row(qPrintable(QStringLiteral("plain.") + type), type, type, 1000);
    // The demuxers of these claim no extension that is accepted.
    row("plain.wma", "wma", "", 1000);
    row("plain.m4r", "m4r", "", 1000);
    row("covered.m4r", "m4r", "", 1000);
    row("plain.flac", "flac", "", 1000);
    row("covered.flac", "flac", "", 1000);
    row("covered.mp3", "mp3", "mp3", 1000);
    row("tagged.ogg", "ogg", "ogg", 1000);
    row("mp3 called.dat", "dat", "mp3", 1000);
    row("plain.mp2", "x", "mp2", 1000);
    row("aac called.mp3", "mp3", "mp3", 1000);
    row("plain.mp3", "MP3", "mp3", 1000);
    row("-i \"$(x)\" 'é' %d.mp3", "mp3", "mp3", 1000);
    row("truncated.wav", "wav", "wav", 340);
    row("truncated.m4r", "m4r", "", 0);
    row("video.mp4", "mp3", "", 200);
    for (const char* name :
         {"silent.mp4", "empty.mp3", "zeros.mp3", "text.mp3", "missing.mp3", "cover.png", "."})
        row(name, "mp3", "", 0);
}

void TestPlayerInspection::audioFormat_tellsFormat_byContent()
{
    QFETCH(QString, name);
    QFETCH(QString, expected);
    QFETCH(qint64, duration_ms);
    const QString path = media(name);
    long long duration = -1;
    QString format = expected;
    const bool accepted = AudioPlayer::audioFormat(path, duration, format);
    QTEST(accepted ? format : QString(), "format");
    // Frames are whole, and bit rates estimates.
    const qint64 tolerance_ms = duration_ms / 10;
    if (accepted)
        QVERIFY2(std::abs(duration - duration_ms) <= tolerance_ms, qPrintable(QString::number(duration)));
    else
        QCOMPARE(format, expected);
    QVERIFY(std::abs(AudioPlayer::duration(path) - duration_ms) <= tolerance_ms);

    QString again = expected;
    QString cover;
    QCOMPARE(AudioPlayer::audioFormat(path, duration, again, cover), accepted);
    QCOMPARE(again, format);
    QCOMPARE(!cover.isEmpty(), name == QLatin1String("covered.mp3"));
}

void TestPlayerInspection::covers_areSaved_asJpeg()
{
    for (const auto& [name, has_cover] : {std::pair("covered.mp3", true),
                                          {"covered.flac", true},
                                          {"covered.m4r", true},
                                          {"plain.mp3", false},
                                          {"video.mp4", false},
                                          {"text.mp3", false},
                                          {"missing.mp3", false}}) {
        const InCase in_case(name);
        const QStringList before = temporaryPictures();
        const QString saved = AudioPlayer::getCover(media(name));
        const QString target = folder.filePath("own.png");
        QCOMPARE(AudioPlayer::audioCover(media(name), target), has_cover);
        if (!has_cover) {
            QCOMPARE(saved, QString());
            QCOMPARE(temporaryPictures(), before);
            QVERIFY(!QFile::exists(target));
            continue;
        }
        QImageReader reader(saved);
        reader.setDecideFormatFromContent(true);
        QCOMPARE(reader.format(), QByteArray("jpeg"));
        QCOMPARE(reader.size(), QSize(64, 48));
        // The picture in PNG is the one that went in.
        QCOMPARE(QImage(target).convertToFormat(QImage::Format_RGB32),
                 QImage(media("cover.png")).convertToFormat(QImage::Format_RGB32));
        QVERIFY(QFile::remove(target));
        QVERIFY(!AudioPlayer::audioCover(media(name), folder.filePath("no/such/folder.jpg")));
    }
}

void TestPlayerInspection::getAlbumInfo_readsTags_thatAreThere()
{
    const QVariantMap tags{
        {"Album", "Album 1"}, {"Name", QString::fromUtf8("Lied über Regen")}, {"Artist", "A & B"}};
    for (const char* name : {"covered.mp3", "covered.flac", "covered.m4r", "tagged.ogg", "tagged.opus"})
        QCOMPARE(AudioPlayer::getAlbumInfo(media(name)), tags);
    for (const char* name : {"plain.wav", "text.mp3"})
        QCOMPARE(AudioPlayer::getAlbumInfo(media(name)), QVariantMap());
}

QTEST_GUILESS_MAIN(TestPlayerInspection)
#include "test_playerinspection.moc"
