#include "examples/host/host.h"
#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/multimediaprovider.h"
#include "tests/support/colour.h"
#include "tests/support/faces.h"
#include "tests/support/files.h"
#include "tests/support/imagebytes.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/program.h"
#include "tests/support/row.h"
#include "tests/support/scene.h"
#include "tests/support/soundcheck.h"
#include "tests/support/soundserver.h"

#include <QtGui/QPainter>
#include <QtGui/QTransform>
#include <QtQuick/QQuickItem>
#include <QtQuick/QQuickWindow>
#include <QtTest/QtTest>
#include <QtWidgets/QApplication>

#include <algorithm>
#include <memory>

namespace {

constexpr QSize kPhoto(600, 400);

QJsonObject videoOf(const QString& file)
{
    return mediacheck::stream(mediacheck::probe(file), "video");
}

double loudest(const QVariantList& bands)
{
    double most = 0;
    for (const QVariant& band : bands)
        most = std::max(most, band.toDouble());
    return most;
}

/// The colours in the middle of the four quarters: top left, top right, bottom left, bottom right.
QList<QColor> quarters(const QImage& image)
{
    QList<QColor> colors;
    for (const double y : {0.25, 0.75})
        for (const double x : {0.25, 0.75})
            colors += image.pixelColor(int(x * image.width()), int(y * image.height()));
    return colors;
}

} // namespace

/// Every page of the example host, driven by mouse and keyboard to its result.
class TestHost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { log = std::make_unique<LogCapture>(); }
    void cleanup();
    void cleanupTestCase();

    void pages_fit_emptyAndAtSmallestSize_data();
    void pages_fit_emptyAndAtSmallestSize();
    void pages_refuse_whatTheyCannotOpen_data();
    void pages_refuse_whatTheyCannotOpen();
    void theme_followsButton();

    void voice_recordsAndPlays_inVoice_data();
    void voice_recordsAndPlays_inVoice();
    void voice_becomesText();
    void voice_keepsNothing_whenDiscarded();
    void voice_says_whenNoMicrophone();
    void player_showsTags_playsSeeksAndPauses();
    void screen_records_partOfScreen_data();
    void screen_records_partOfScreen();
    void screen_chooses_secondScreen();
    void screen_says_whenTheDesktopRefuses();
    void photo_crops_turnsAndMirrors();
    void photo_keepsRatio_whenChosen();
    void photo_draws_andUndoes();
    void photo_changesColours();
    void photo_hidesFaces();
    void video_clips_betweenHandles();
    void gif_becomes_data();
    void gif_becomes();
    void gif_leavesNothing_whenCancelled();
    void devices_follow_whatIsPluggedIn();

private:
    void show(const QString& page) { scene->click("page" + page); }
    void open(const QString& button, const QString& file);
    QString save(const QString& button, const QString& name);
    void openPhoto();
    QImage savePhoto();
    /// From and to points in fractions of an area of the item, which is one of its properties.
    void dragIn(const QString& item, const char* area, const QPointF& from, const QPointF& to);
    void setSlider(const QString& name, double value);

    std::unique_ptr<Host> host;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<LogCapture> log;
    QTemporaryDir folder;
    std::unique_ptr<Program> speaker;
};

void TestHost::initTestCase()
{
    speaker = std::make_unique<Program>("feed-microphone", QStringList{"--loop", media("speech.wav")});
    QVERIFY(speaker->waitForStarted());
    QImage photo(kPhoto, QImage::Format_RGB32);
    QPainter painter(&photo);
    painter.fillRect(0, 0, 300, 200, QColor(200, 40, 40));
    painter.fillRect(300, 0, 300, 200, QColor(40, 160, 60));
    painter.fillRect(0, 200, 300, 200, QColor(40, 80, 200));
    painter.fillRect(300, 200, 300, 200, QColor(230, 200, 60));
    painter.end();
    QVERIFY(photo.save(folder.filePath("photo.png")));

    const LogCapture start;
    host = std::make_unique<Host>();
    QVERIFY2(host->window(), qPrintable(start.text()));
    scene = std::make_unique<Scene>(*host->window());
    scene->window().setPosition(0, 0);
    scene->window().requestActivate();
    QVERIFY(QTest::qWaitForWindowActive(&scene->window()));
    if (QGuiApplication::platformName() == "wayland") // the compositor makes it as large as the screen
        QTRY_COMPARE(scene->window().size(), scene->window().screen()->size());
    QCOMPARE(start.count("qrc:/"), 0);
}

void TestHost::cleanup()
{
    const QString said = log->text();
    log.reset();
    if (QTest::currentTestFailed())
        qWarning("%s", qPrintable(said));
    const QQuickItem* notice = scene->find("notice");
    QCOMPARE(notice ? notice->property("text").toString() : QString(), QString());
    // Qt's complaints about the scene: a missing property, a loop of bindings, a layout that does not settle.
    for (const char* complaint : {"qrc:/", "QML ", "Qt Quick Layouts"})
        QVERIFY2(!said.contains(QLatin1String(complaint)), qPrintable(said));
}

void TestHost::cleanupTestCase()
{
    scene.reset();
    host.reset();
    speaker.reset();
    AudioPlayer::instance()->release();
}

void TestHost::open(const QString& button, const QString& file)
{
    scene->click(button);
    scene->answerFileDialog(file);
}

QString TestHost::save(const QString& button, const QString& name)
{
    const QString target = folder.filePath(name);
    QFile::remove(target);
    scene->click(button);
    scene->answerFileDialog(target);
    return QTest::qWaitFor([&] { return QFile::exists(target); }) ? target : QString();
}

void TestHost::dragIn(const QString& item, const char* area, const QPointF& from, const QPointF& to)
{
    const QRectF rect = scene->value(item, area).toRectF();
    const auto at = [&](const QPointF& point) {
        const QPointF inside(point.x() * rect.width(), point.y() * rect.height());
        return scene->item(item).mapToScene(rect.topLeft() + inside).toPoint();
    };
    scene->drag(at(from), at(to));
}

void TestHost::setSlider(const QString& name, double value)
{
    QQuickItem& slider = scene->item(name);
    const double from = slider.property("from").toDouble();
    const double share = (value - from) / (slider.property("to").toDouble() - from);
    const double now = slider.property("visualPosition").toDouble();
    scene->drag(scene->at(name, 0.02 + 0.96 * now, 0.5), scene->at(name, 0.02 + 0.96 * share, 0.5));
}

void TestHost::pages_fit_emptyAndAtSmallestSize_data()
{
    QTest::addColumn<int>("key");
    int key = Qt::Key_1;
    for (const char* page : {"voice", "player", "screen", "photo", "video", "gif", "devices"})
        QTest::newRow(page) << key++;
}

void TestHost::pages_fit_emptyAndAtSmallestSize()
{
    QFETCH(int, key);
    scene->key(Qt::Key(key), Qt::ControlModifier);
    QTRY_COMPARE(scene->value("navigation", "currentIndex").toInt(), key - Qt::Key_1);
    scene->shoot(QStringLiteral("empty-") + QLatin1String(QTest::currentDataTag()));
    const QSize before = scene->window().size();
    scene->window().resize(scene->window().minimumSize());
    QTRY_COMPARE(scene->window().size(), scene->window().minimumSize());
    QTRY_COMPARE(scene->misfits().join("; "), QString());
    scene->window().resize(before);
    QTRY_COMPARE(scene->window().size(), before);
    // Everything can be reached: the focus comes round to where it was.
    scene->key(Qt::Key_Tab);
    QQuickItem* first = scene->window().activeFocusItem();
    for (int step = 0; step < 60; ++step) {
        scene->key(Qt::Key_Tab);
        if (scene->window().activeFocusItem() == first)
            return;
    }
    QFAIL("the focus does not come round");
}

void TestHost::pages_refuse_whatTheyCannotOpen_data()
{
    QTest::addColumn<QString>("button");
    QTest::newRow("player") << "openSound";
    QTest::newRow("photo") << "openPhoto";
    QTest::newRow("video") << "openVideo";
    QTest::newRow("gif") << "openGif";
}

void TestHost::pages_refuse_whatTheyCannotOpen()
{
    QFETCH(QString, button);
    show(QLatin1String(QTest::currentDataTag()));
    open(button, media("text.mp4"));
    QTRY_VERIFY(scene->isSeen("notice"));
    QVERIFY(scene->value("notice", "text").toString().contains("text.mp4"));
    scene->shoot(QStringLiteral("failure-") + QLatin1String(QTest::currentDataTag()));
    scene->key(Qt::Key_Escape);
    QTRY_VERIFY(!scene->isSeen("notice"));
}

void TestHost::theme_followsButton()
{
    const auto corner = [this] { return scene->window().grabWindow().pixelColor(400, 8).lightness(); };
    for (const int step : {1, 2, 3}) {
        scene->click("theme");
        const bool dark = step == 1;
        QTRY_VERIFY(dark ? corner() < 40 : corner() > 215);
    }
}

void TestHost::voice_recordsAndPlays_inVoice_data()
{
    columns<int, double>("choice", "factor"); // of the time it was spoken in
    QTest::newRow("as it is") << 0 << 1.0;
    QTest::newRow("high voice") << 1 << 1.0;
    QTest::newRow("double speed") << 5 << 0.5;
}

void TestHost::voice_recordsAndPlays_inVoice()
{
    QFETCH(int, choice);
    QFETCH(double, factor);
    show("voice");
    scene->item("voices").setProperty("currentIndex", 0);
    scene->choose("voices", choice);
    QCOMPARE(scene->value("voices", "currentIndex").toInt(), choice);
    scene->click("recordVoice");
    QElapsedTimer clock;
    clock.start();
    QTRY_VERIFY(loudest(scene->value("spectrum", "values").toList()) > 0.1);
    QTRY_VERIFY(clock.elapsed() > 2500);
    if (choice == 0)
        scene->shoot("voice-recording");
    const double spoken_s = double(clock.elapsed()) / 1000;
    scene->click("recordVoice");
    QTRY_VERIFY(scene->isSeen("waveform"));
    QVERIFY(scene->value("waveform", "values").toList().size() >= 100);

    const QString saved = save("saveVoice", "message.aac");
    QVERIFY(!saved.isEmpty());
    QCOMPARE(mediacheck::decodeErrors(saved), QString());
    const auto sound = mediacheck::decodeAudio(saved, 24000);
    const double length_s = double(sound.size()) / 24000;
    QVERIFY2(qAbs(length_s - spoken_s * factor) < 0.35 * spoken_s,
             qPrintable(QString("%1 s of %2").arg(length_s).arg(spoken_s)));
    QVERIFY(soundcheck::rms(sound) > 300);

    scene->click("play");
    QTRY_VERIFY(scene->value("voiceTransport", "position").toDouble() > 200);
    if (choice == 0)
        scene->shoot("voice-message");
    scene->click("play");
    QTRY_VERIFY(!scene->value("voiceTransport", "playing").toBool());
}

void TestHost::voice_becomesText()
{
    show("voice");
    scene->item("voices").setProperty("currentIndex", 0);
    scene->click("recordVoice");
    QElapsedTimer clock;
    clock.start();
    QTRY_VERIFY_WITH_TIMEOUT(clock.elapsed() > 7000, 10'000); // what is spoken once, from anywhere on
    scene->click("recordVoice");
    QTRY_VERIFY(scene->isEnabled("toText"));
    scene->click("toText");
    QTRY_VERIFY(scene->isEnabled("cancelWork"));
    QTRY_VERIFY_WITH_TIMEOUT(scene->isEnabled("toText"), 60'000);
    scene->shoot("voice-text");
    const QString text = scene->value("voiceText", "text").toString();
    const QStringList wanted = {"quick", "brown", "fox", "jumps", "over", "lazy", "dog", "runs", "away"};
    const auto heard =
        std::count_if(wanted.begin(), wanted.end(), [&](const QString& word) { return text.contains(word); });
    QVERIFY2(heard >= 5, qPrintable(text));
    QVERIFY(scene->value("languages", "count").toInt() > 1);
    const QString answering = scene->value("answeringModel", "text").toString();
    QVERIFY2(answering.contains("English (en_US)"), qPrintable(answering));

    scene->click("toText");
    QTRY_VERIFY(scene->isEnabled("cancelWork"));
    scene->click("cancelWork");
    QTRY_VERIFY(scene->isEnabled("toText"));
}

void TestHost::voice_keepsNothing_whenDiscarded()
{
    show("voice");
    scene->item("recordVoice").forceActiveFocus();
    scene->key(Qt::Key_Space);
    QTRY_VERIFY(!scene->value("spectrum", "values").toList().isEmpty());
    const QDir recordings(RecordEngine::instance()->storagePath());
    const int files = int(recordings.entryList(QDir::Files).size());
    scene->key(Qt::Key_Escape);
    QTRY_VERIFY(!scene->isSeen("spectrum"));
    QCOMPARE(int(recordings.entryList(QDir::Files).size()), files - 1);
    QVERIFY(!RecordEngine::instance()->isRecording());
}

void TestHost::voice_says_whenNoMicrophone()
{
    show("voice");
    RecordConfig* config = RecordEngine::instance()->config();
    config->setInputDevice("one that was unplugged");
    scene->click("recordVoice");
    QTRY_VERIFY(scene->isSeen("notice"));
    config->setInputDevice("Default");
    scene->key(Qt::Key_Escape);
}

void TestHost::player_showsTags_playsSeeksAndPauses()
{
    show("player");
    scene->key(Qt::Key_O, Qt::ControlModifier);
    scene->answerFileDialog(media("song.mp3"));
    QTRY_VERIFY(scene->isSeen("cover"));
    QCOMPARE(scene->value("soundTitle", "text").toString(), QString("A long tone"));
    QTRY_COMPARE(scene->value("cover", "implicitWidth").toInt(), 300);
    QTRY_VERIFY(scene->value("soundTransport", "position").toDouble() > 100);
    QVERIFY(qAbs(scene->value("soundTransport", "duration").toDouble() - 12000) < 200);

    scene->click(scene->at("seek", 0.5, 0.5));
    QTRY_VERIFY(scene->value("soundTransport", "position").toDouble() > 5000);
    scene->click("play");
    QVERIFY(!scene->value("soundTransport", "playing").toBool());
    const double paused_at = scene->value("soundTransport", "position").toDouble();
    scene->choose("speed", 2); // from 1 to 1.5
    QCOMPARE(scene->value("speed", "currentText").toString(), QString("1.5"));
    scene->shoot("player");
    QCOMPARE(scene->value("soundTransport", "position").toDouble(), paused_at);
    scene->click("play");
    QTRY_VERIFY(scene->value("soundTransport", "position").toDouble() > paused_at);
    scene->click(scene->at("seek", 0.9, 0.5));
    // It comes to its end, and would begin anew from there.
    QTRY_VERIFY_WITH_TIMEOUT(!scene->value("soundTransport", "playing").toBool(), 20'000);
    QTRY_COMPARE(scene->value("soundTransport", "position").toDouble(), 0.0);
}

void TestHost::screen_records_partOfScreen_data()
{
    QTest::addColumn<QString>("format");
    QTest::newRow("MP4, paused once") << "mp4";
    QTest::newRow("GIF") << "gif";
}

void TestHost::screen_records_partOfScreen()
{
    QFETCH(QString, format);
    show("screen");
    scene->click(format);
    scene->click("wholeScreen");
    dragIn("screenFrame", "bounds", {0.3, 0.3}, {0.6, 0.7});
    const QRectF part = scene->value("screenFrame", "selection").toRectF();
    QVERIFY(qAbs(part.x() - 0.3) < 0.02 && qAbs(part.right() - 0.6) < 0.02);
    const QString caption = scene->value("screenFrame", "caption").toString();
    QTRY_VERIFY(scene->value("screenPreview", "hasPicture").toBool());
    if (format == "mp4")
        scene->shoot("screen-part");

    scene->click("recordScreen");
    QTRY_VERIFY(scene->isEnabled("stopScreen"));
    QTest::qWait(700); // of recording
    if (format == "mp4") {
        scene->click("recordScreen");
        QTRY_VERIFY(scene->isEnabled("stopScreen"));
        scene->shoot("screen-paused");
        scene->click("recordScreen");
        QTRY_VERIFY(scene->isEnabled("stopScreen"));
        QTest::qWait(700); // of recording
    }
    scene->click("stopScreen");
    QTRY_VERIFY_WITH_TIMEOUT(scene->isSeen("saveScreen"), 20'000);

    const QString saved = save("saveScreen", "screen." + format);
    QVERIFY(!saved.isEmpty());
    const QJsonObject video = videoOf(saved);
    QCOMPARE(QStringLiteral("%1 × %2").arg(video["width"].toInt()).arg(video["height"].toInt()), caption);
    QCOMPARE(mediacheck::decodeErrors(saved), QString());
    if (format == "mp4") {
        QTRY_VERIFY(scene->isSeen("playFilm"));
        scene->click("playFilm");
        QTRY_VERIFY(scene->value("seekFilm", "position").toDouble() > 100);
    }
    scene->shoot("screen-result-" + format);
    scene->click("newRecording");
    QTRY_VERIFY(scene->isSeen("screenFrame"));
}

void TestHost::screen_chooses_secondScreen()
{
    if (QGuiApplication::screens().size() < 2)
        QSKIP("there is one screen");
    show("screen");
    scene->choose("screens", 1);
    QTRY_COMPARE(scene->value("screenFrame", "caption").toString(), QString("1280 × 720"));
    scene->click("recordScreen");
    QTRY_VERIFY(scene->isEnabled("stopScreen"));
    scene->click("stopScreen");
    QTRY_VERIFY_WITH_TIMEOUT(scene->isSeen("saveScreen"), 20'000);
    const QString saved = save("saveScreen", "second.mp4");
    QCOMPARE(videoOf(saved)["width"].toInt(), 1280);
}

void TestHost::openPhoto()
{
    show("photo");
    open("openPhoto", folder.filePath("photo.png"));
    QTRY_VERIFY(scene->isSeen("canvas"));
    scene->click("cropMode");
}

QImage TestHost::savePhoto()
{
    const QString saved = save("savePhoto", "edited.png");
    return QTest::qWaitFor([this] { return scene->isEnabled("savePhoto"); }) ? QImage(saved) : QImage();
}

void TestHost::screen_says_whenTheDesktopRefuses()
{
    if (QGuiApplication::platformName() != "wayland" || qEnvironmentVariableIsSet("RIG_BACKEND_PID"))
        QSKIP("needs a Wayland desktop that shares no screen");
    show("screen");
    for (const char* button : {"pagescreen", "askAgain"}) {
        scene->click(button);
        QTRY_VERIFY(scene->isSeen("askAgain"));
        QVERIFY(scene->value("previewWords", "text").toString().startsWith("The desktop does not let"));
    }
    scene->click("recordScreen");
    QTRY_VERIFY(scene->isSeen("notice"));
    scene->shoot("screen-refused");
    scene->key(Qt::Key_Escape);
}

void TestHost::photo_crops_turnsAndMirrors()
{
    openPhoto();
    scene->shoot("photo-opened");
    // The right edge to the middle leaves red over blue.
    dragIn("canvas", "pictureRect", {1, 0.5}, {0.5, 0.5});
    QCOMPARE(scene->value("photoFrame", "caption").toString(), QString("300 × 400"));
    scene->click("turnLeft");
    scene->click("mirror");
    scene->shoot("photo-cropped");
    const QImage image = savePhoto();
    QCOMPARE(image.size(), QSize(400, 300));
    const QList<QColor> colors = quarters(image);
    QVERIFY(isNear(colors[0], QColor(40, 80, 200)) && isNear(colors[1], QColor(200, 40, 40)));
    QVERIFY(isNear(colors[2], QColor(40, 80, 200)) && isNear(colors[3], QColor(200, 40, 40)));

    scene->click("resetPhoto");
    const QList<QColor> whole = quarters(savePhoto());
    QVERIFY(isNear(whole[1], QColor(40, 160, 60)));
}

void TestHost::photo_keepsRatio_whenChosen()
{
    openPhoto();
    scene->choose("ratios", 1); // 1 : 1
    QCOMPARE(scene->value("photoFrame", "caption").toString(), QString("400 × 400"));
    const QRectF crop = scene->value("photoFrame", "selection").toRectF();
    dragIn("canvas", "pictureRect", crop.bottomRight(), {0.5, 0.5});
    const QImage image = savePhoto();
    QVERIFY(qAbs(image.width() - image.height()) <= 1);
    QVERIFY(image.width() > 150 && image.width() < 300);
    // Ten pixels to the right by the keyboard.
    scene->item("photoFrame").forceActiveFocus();
    const double left = scene->value("photoFrame", "selection").toRectF().left() * kPhoto.width();
    scene->key(Qt::Key_Right);
    const double moved = scene->value("photoFrame", "selection").toRectF().left() * kPhoto.width();
    QVERIFY(qAbs(moved - left - 10) < 0.5);
}

void TestHost::photo_draws_andUndoes()
{
    openPhoto();
    scene->click("turnRight");
    scene->click("drawMode");
    scene->item("tools").setProperty("currentIndex", 0);
    scene->choose("tools", 3); // a box
    scene->click("color5");
    dragIn("canvas", "pictureRect", {0.25, 0.25}, {0.75, 0.75});
    scene->click("color4");
    dragIn("canvas", "pictureRect", {0.1, 0.1}, {0.9, 0.9});
    scene->shoot("photo-drawn");
    scene->item("canvas").forceActiveFocus();
    scene->key(Qt::Key_Z, Qt::ControlModifier);
    const QImage image = savePhoto();
    QCOMPARE(image.size(), kPhoto.transposed());
    QVERIFY(isNear(image.pixelColor(200, 150), Qt::white));
    QVERIFY(isNear(image.pixelColor(100, 300), Qt::white));
    QVERIFY(!isNear(image.pixelColor(200, 60), Qt::black));
    QTRY_VERIFY(scene->isEnabled("undoDrawing"));
}

void TestHost::photo_changesColours()
{
    openPhoto();
    setSlider("lightness", 0.5);
    scene->shoot("photo-colours");
    const QList<QColor> light = quarters(savePhoto());
    QVERIFY2(light[2].lightness() > QColor(40, 80, 200).lightness() + 90, qPrintable(light[2].name()));
    scene->click("resetPhoto");
    QVERIFY(isNear(quarters(savePhoto())[2], QColor(40, 80, 200)));
}

void TestHost::photo_hidesFaces()
{
    const QImage upright = QImage(dataFile("photos/astronaut.jpg")).copy(80, 0, 256, 240);
    // As it is, and as a camera stores what it sees turned and mirrored.
    for (const auto& [orientation, stored] :
         {std::pair(1, QTransform()), {7, QTransform().rotate(-90) * QTransform(-1, 0, 0, 1, 0, 0)}}) {
        const InCase in_case(orientation);
        const QString file = folder.filePath(QStringLiteral("camera-%1.jpg").arg(orientation));
        writeFile(file, ImageBytes::turnedJpeg(upright.transformed(stored), char(orientation)));
        show("photo");
        open("openPhoto", file);
        QTRY_VERIFY_WITH_TIMEOUT(scene->isEnabled("blur"), 20'000);
        const QImage before = savePhoto();
        QVERIFY(before.size() == upright.size() && patchBetween(upright, before).isEmpty());
        scene->click("blur");
        QTRY_VERIFY_WITH_TIMEOUT(scene->value("blur", "checked").toBool() && scene->isEnabled("blur"),
                                 20'000);
        scene->shoot("photo-faces");
        const QImage hidden = savePhoto();
        QCOMPARE(hidden.size(), before.size());
        const QRect patch = patchBetween(before, hidden);
        QVERIFY(patch.contains(QRect(110, 85, 70, 75)) && QRect(70, 35, 145, 185).contains(patch));
        scene->click("blur");
        QTRY_VERIFY(!scene->value("blur", "checked").toBool());
        QCOMPARE(savePhoto(), before);
    }
}

void TestHost::video_clips_betweenHandles()
{
    show("video");
    open("openVideo", media("video.mp4"));
    QTRY_VERIFY(scene->isEnabled("clip"));
    const QString facts = scene->value("videoFacts", "text").toString();
    QVERIFY2(facts.startsWith("640 × 360 · 25 pictures a second · H.264 · AAC, 44.1 kHz"), qPrintable(facts));
    // All thumbnails have come.
    QTRY_VERIFY(scene->window().grabWindow().pixelColor(scene->at("span", 0.97, 0.3)).saturation() > 40);

    scene->drag(scene->at("span", 0.005, 0.5), scene->at("span", 0.3, 0.5));
    scene->drag(scene->at("span", 0.995, 0.5), scene->at("span", 0.6, 0.5));
    const auto* first = scene->value("span", "first").value<QObject*>();
    QVERIFY(qAbs(first->property("value").toDouble() - 3000) < 300);
    scene->shoot("video-span");
    scene->click("clip");
    QTRY_VERIFY_WITH_TIMEOUT(scene->isSeen("saveClip"), 10'000);
    scene->click("playFilm");
    QTRY_VERIFY(scene->value("seekFilm", "position").toDouble() > 300);
    scene->shoot("video-clip");

    const QString saved = save("saveClip", "clip.mp4");
    QVERIFY(qAbs(mediacheck::seconds(mediacheck::probe(saved)["format"].toObject()) - 3) <
            1.2); // it begins at a key frame, one in a second
    QCOMPARE(mediacheck::decodeErrors(saved), QString());
    scene->click("wholeVideo");
    QTRY_VERIFY(!scene->isSeen("saveClip"));
}

void TestHost::gif_becomes_data()
{
    columns<QString, QString, QSize>("button", "suffix", "size");
    row("smaller", "compress", "gif", QSize(160, 120));
    row("video", "toVideo", "mp4", QSize(320, 240));
}

void TestHost::gif_becomes()
{
    QFETCH(QString, button);
    QFETCH(QString, suffix);
    QFETCH(QSize, size);
    show("gif");
    open("openGif", media("moving.gif"));
    QTRY_VERIFY(scene->isSeen("sizeBefore"));
    QVERIFY(scene->value("sizeBefore", "text").toString().startsWith("320 × 240 · "));
    scene->click(button);
    QTRY_VERIFY_WITH_TIMEOUT(scene->isSeen("sizeAfter"), 10'000);
    QVERIFY2(scene->value("sizeAfter", "text").toString().contains("% smaller"),
             qPrintable(scene->value("sizeAfter", "text").toString()));
    scene->shoot("gif-" + suffix);
    const QString saved = save("saveGif", "made." + suffix);
    const QJsonObject video = videoOf(saved);
    QCOMPARE(QSize(video["width"].toInt(), video["height"].toInt()), size);
    QVERIFY(qAbs(mediacheck::seconds(mediacheck::probe(saved)["format"].toObject()) - 3) < 0.2);
}

void TestHost::gif_leavesNothing_whenCancelled()
{
    show("gif");
    open("openGif", media("large.gif"));
    QTRY_VERIFY(scene->isEnabled("compress"));
    const QDir temporary = QDir::temp();
    const auto files = [&] { return temporary.entryList({"*.gif"}, QDir::Files).size(); };
    const auto before = files();
    scene->click("compress");
    QTRY_VERIFY(scene->isEnabled("cancelWork"));
    scene->shoot("gif-working");
    scene->click("cancelWork");
    QTRY_VERIFY(scene->isEnabled("compress"));
    QVERIFY(!scene->isSeen("sizeAfter") && !scene->isSeen("notice"));
    QCOMPARE(files(), before);
}

void TestHost::devices_follow_whatIsPluggedIn()
{
    show("devices");
    QTRY_VERIFY(scene->isSeen("Loudspeakers"));
    const auto count = [this] {
        return scene->item("Loudspeakers").property("devices").value<QObject*>()->property("count").toInt();
    };
    QTRY_VERIFY(count() > 0);
    const int before = count();
    const QString module = SoundServer::addSink("headset", "Headset");
    QTRY_COMPARE(count(), before + 1);
    scene->shoot("devices");
    SoundServer::unload(module);
    QTRY_COMPARE(count(), before);
}

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    TestHost test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_host.moc"
