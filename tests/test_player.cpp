#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/monitor.h"
#include "tests/support/playerhost.h"
#include "tests/support/row.h"

#include <QtTest/QtTest>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <thread>

using Request = std::function<void(AudioPlayer&)>;
Q_DECLARE_METATYPE(Request)

namespace {
const QString kWhole = QStringLiteral("Duration Started Progress Finished Closed");
} // namespace

/// Transport, events and sound of local files.
class TestPlayer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void play_isHeardWhole_atEverySpeed();
    void play_isHeardWhole_whenShorterThanBuffer();
    void play_reportsPositionAndSamples_whilePlaying();
    void play_doesNothing_whenNotAnnounced();
    void play_fails_withItsMessage_data();
    void play_fails_withItsMessage();
    void setSpeed_takesEffect_duringPlayback();
    void setSpeed_endsPlayback_whenRefused();
    void breakPlay_makesWayForNewSource();
    void pause_resumesWhereItLeft_orAtSeek();
    void stop_reportsTwice_whenPlaying();
    void request_isNotLost_straightAfterPlay_data();
    void request_isNotLost_straightAfterPlay();
    void stop_doesNothing_withoutCallback();
    void events_doNotPileUp();
    void seek_movesPosition_duringPlayback();
    void closeAudioOutput_playsOnInSilence();
    void transport_staysConsistent_underRandomCallsFromFourThreads();

private:
    std::unique_ptr<PlayerHost> host;
};

void TestPlayer::init()
{
    while (PlayerHost::player()->audioEvent().eventId != EventNone)
        continue;
    host = std::make_unique<PlayerHost>();
}

void TestPlayer::cleanup()
{
    PlayerHost::player()->setSpeed(1.0);
    host.reset();
}

void TestPlayer::play_isHeardWhole_atEverySpeed()
{
    for (const double speed : {1.0, 1.5, 2.0, 3.0, 0.5}) {
        const InCase in_case("speed", speed);
        const double effective = std::min(speed, 2.0);
        host->forget();
        Monitor monitor;
        host->player()->setSpeed(speed);
        host->play(media("tone.wav"));
        QTRY_COMPARE_WITH_TIMEOUT(host->order(), kWhole, 10'000);
        QCOMPARE(host->last(EventDuration).event.info.value("Duration").toLongLong(), 3000);

        const Monitor::Sound sound = monitor.stop();
        qInfo("heard %.3f s, %.1f Hz, longest gap %.1f ms", sound.duration_s, sound.frequency_hz,
              sound.longest_gap_s * 1000);
        QVERIFY(std::abs(sound.duration_s - 3.0 / effective) < 0.06);
        QVERIFY(std::abs(sound.frequency_hz - 440) < 4);
        QVERIFY(sound.longest_gap_s < 0.06);
    }
}

void TestPlayer::play_isHeardWhole_whenShorterThanBuffer()
{
    Monitor monitor;
    host->play(media("short.wav"));
    QTRY_COMPARE(host->order().section(' ', -1), QStringLiteral("Closed"));
    const Monitor::Sound sound = monitor.stop();
    qInfo("heard %.3f s", sound.duration_s);
    QVERIFY(std::abs(sound.duration_s - 0.1) < 0.02);
}

void TestPlayer::play_reportsPositionAndSamples_whilePlaying()
{
    host->play(media("long.mp3"), 18'000);
    QTRY_COMPARE(host->count(EventClosed), 1);
    qint64 last_ms = 17'900;
    int samples = 0;
    for (const auto& entry : host->all()) {
        if (entry.event.eventId != EventProgress)
            continue;
        const QVariant time = entry.event.info.value("PlayTime");
        QCOMPARE(static_cast<QMetaType::Type>(time.type()), QMetaType::LongLong);
        QVERIFY(time.toLongLong() >= last_ms);
        last_ms = time.toLongLong();
        const QStringList values = entry.event.info.value("Samples").toStringList();
        samples += values.size();
        for (const QString& value : values)
            QVERIFY(std::abs(value.toInt()) < 5000);
        QVERIFY(!values.isEmpty());
    }
    QVERIFY(std::abs(last_ms - 20'000) < 100);
    // The device still has its buffer of 232 ms to play, and then the playback is over.
    const auto drained = host->last(EventFinished).time - host->last(EventProgress).time;
    QVERIFY2(drained < std::chrono::milliseconds(600),
             qPrintable(QString::number(std::chrono::duration<double>(drained).count())));
    // One frame in three is reported.
    QVERIFY(std::abs(samples - 2 * 44100 / 3) < 44100 / 10);
}

void TestPlayer::play_doesNothing_whenNotAnnounced()
{
    const auto play = [](const QString& path) {
        QMetaObject::invokeMethod(PlayerHost::player(), "play", Qt::BlockingQueuedConnection,
                                  Q_ARG(QString, path));
    };
    play(media("tone.wav"));
    play({});
    QCOMPARE(host->order(), QString());
    QCOMPARE(host->player()->audioEvent().eventId, EventNone);
    QVERIFY(host->player()->audioEvent().info.isEmpty());

    // Of several queued requests only the one that matches the newest announcement runs.
    QSemaphore announced;
    QMetaObject::invokeMethod(
        host->player(), [&announced] { announced.acquire(); }, Qt::QueuedConnection);
    host->play(media("tone.wav"));
    host->play(media("long.mp3"));
    host->play(media("short.wav"));
    announced.release();
    QTRY_COMPARE(host->order(), kWhole);
    QCOMPARE(host->last(EventDuration).event.info.value("Duration").toLongLong(), 100);
}

void TestPlayer::play_fails_withItsMessage_data()
{
    columns<QString, QString>("path", "order");
    const QString refused = "Error(decode audio failed.) Closed";
    for (const char* name :
         {"missing.mp3", "empty.mp3", "text.mp3", "zeros.mp3", "silent.mp4", "truncated.m4r", "."})
        QTest::newRow(name) << media(name) << refused;
    QTest::newRow("a sample a second") << media("hostile-rate.wav") << "Duration " + refused;
    QTest::newRow("200 MHz") << media("high-rate.wav") << "Duration " + refused;
    QTest::newRow("playlist in the network") << "https//x"
                                             << "Underload Flowing " + refused;
    for (const char* name : {"-i \"$(x)\" 'é' %d.mp3", "plain.flac", "video.mp4"})
        QTest::newRow(name) << media(name) << kWhole;
    // It ends within a sample.
    QTest::newRow("truncated.wav") << media("truncated.wav")
                                   << "Duration Started Progress Error(avcodec receive frame failed.) Closed";
}

void TestPlayer::play_fails_withItsMessage()
{
    QFETCH(QString, path);
    host->play(path);
    QTRY_COMPARE(host->count(EventClosed), 1);
    QTEST(host->order(), "order");
}

void TestPlayer::setSpeed_takesEffect_duringPlayback()
{
    Monitor monitor;
    host->play(media("tone.wav"));
    QTRY_VERIFY(host->playTime() > 500);
    host->player()->setSpeed(2.0);
    QTRY_COMPARE(host->order(), kWhole);
    const Monitor::Sound sound = monitor.stop();
    qInfo("heard %.3f s, longest gap %.1f ms", sound.duration_s, sound.longest_gap_s * 1000);
    QVERIFY(sound.duration_s > 1.6 && sound.duration_s < 2.3);
    QVERIFY(std::abs(sound.frequency_hz - 440) < 6);
    QVERIFY(sound.longest_gap_s < 0.06);
}

void TestPlayer::setSpeed_endsPlayback_whenRefused()
{
    for (const double speed : {0.1, std::numeric_limits<double>::quiet_NaN()}) {
        host->forget();
        host->play(media("tone.wav"));
        QTRY_COMPARE(host->count(EventProgress) > 0, true);
        host->player()->setSpeed(speed);
        QTRY_COMPARE(host->order(),
                     QStringLiteral("Duration Started Progress Error(reset filter failed.) Closed"));
        host->player()->setSpeed(1.0);
    }
}

void TestPlayer::breakPlay_makesWayForNewSource()
{
    host->play(media("long.mp3"));
    QTRY_VERIFY(host->count(EventProgress) > 0);
    host->play(media("short.wav"));
    QTRY_COMPARE(host->count(EventClosed), 2);
    const QRegularExpression orders(
        "^Duration Started Progress( Finished| Error\\(av read frame failed.\\))? Closed "
        "Duration Started Progress Finished Closed$");
    QVERIFY2(orders.match(host->order()).hasMatch(), qPrintable(host->order()));
}

void TestPlayer::pause_resumesWhereItLeft_orAtSeek()
{
    host->play(media("long.mp3"));
    QTRY_VERIFY(host->playTime() > 300);
    host->player()->pause(true);
    QTRY_COMPARE(host->order(), QStringLiteral("Duration Started Progress Paused Closed"));
    const qint64 paused_ms = host->playTime();

    host->forget();
    std::thread([this] { host->player()->pause(false); }).join(); // any thread will do
    QTRY_VERIFY(host->playTime() > paused_ms);
    const auto events = host->all();
    const auto first = std::find_if(events.begin(), events.end(),
                                    [](const auto& entry) { return entry.event.eventId == EventProgress; });
    QVERIFY(std::abs(first->event.info.value("PlayTime").toLongLong() - paused_ms) < 250);

    host->player()->pause(true);
    QTRY_COMPARE(host->count(EventClosed), 1);
    host->forget();
    host->player()->seekPos(15'000);
    host->player()->pause(false);
    QTRY_VERIFY(host->wasNear(15'000, 500));
}

void TestPlayer::stop_reportsTwice_whenPlaying()
{
    host->play(media("long.mp3"));
    QTRY_VERIFY(host->count(EventProgress) > 0);
    host->player()->stop(false);
    QTRY_COMPARE(host->count(EventClosed), 1);
    // The last progress may be under way.
    QVERIFY2(host->order().remove(QStringLiteral(" Progress")).endsWith("Stopped Stopped Closed"),
             qPrintable(host->order()));
    host->forget();
    host->player()->stop(true);
    QCOMPARE(host->order(), QStringLiteral("Stopped")); // nothing to wait for

    host->forget();
    host->play(media("long.mp3"));
    QTRY_VERIFY(host->count(EventProgress) > 0);
    QElapsedTimer timer;
    timer.start();
    host->player()->stop(true);
    QVERIFY(timer.elapsed() >= 180); // Qt's timers may be 5 % early
    QTRY_COMPARE(host->count(EventClosed), 1);
}

void TestPlayer::request_isNotLost_straightAfterPlay_data()
{
    columns<Request, QString>("request", "order");
    const auto add = [](const char* name, const Request& request, const char* order) {
        row(name, request, QString(order));
    };
    add(
        "stop", [](AudioPlayer& player) { player.stop(false); }, "Stopped");
    add(
        "stop, and wait", [](AudioPlayer& player) { player.stop(true); }, "Stopped");
    add(
        "end", [](AudioPlayer& player) { player.breakPlay({}, 0); }, "");
    add(
        "pause", [](AudioPlayer& player) { player.pause(true); }, "Paused Closed");
    const auto stop_resumed = [](AudioPlayer& player) {
        player.pause(true);
        player.pause(false);
        player.stop(false);
    };
    add("stop after a resume", stop_resumed, "Stopped");
}

void TestPlayer::request_isNotLost_straightAfterPlay()
{
    QFETCH(Request, request);
    QFETCH(QString, order);
    const auto settle = [this] {
        for (int i = 0; i < 2; ++i) // what comes may leave something to come
            QMetaObject::invokeMethod(
                host->player(), [] {}, Qt::BlockingQueuedConnection);
    };
    host->play(media("missing.mp3")); // the source before may still report its end
    QTRY_VERIFY(host->order().endsWith("Error(decode audio failed.) Closed"));
    host->forget();
    QSemaphore asked;
    QMetaObject::invokeMethod(
        host->player(), [&asked] { asked.acquire(); }, Qt::QueuedConnection);
    host->play(media("tone.wav"), 1000);
    request(*host->player());
    asked.release();
    settle();
    QCOMPARE(host->order(), order);

    // What comes after it plays: a resume of what was paused, or a new request for the same source.
    host->forget();
    if (order.startsWith("Paused"))
        host->player()->pause(false);
    else
        host->play(media("tone.wav"), 1000);
    QTRY_VERIFY(host->playTime() > 1100);
    QVERIFY(host->playTime() < 2500);
}

void TestPlayer::stop_doesNothing_withoutCallback()
{
    host->play(media("tone.wav"));
    QTRY_VERIFY(host->count(EventProgress) > 0);
    host->player()->deregCallBack();
    host->player()->stop(false);
    host->player()->regCallBack(nullptr, host.get());
    host->player()->stop(false);
    while (host->player()->audioEvent().eventId != EventFinished) // the queue goes on without a callback
        QTest::qWait(20);
}

void TestPlayer::events_doNotPileUp()
{
    for (const bool called_back : {false, true}) {
        const InCase in_case("called back", called_back);
        static int announced = 0;
        announced = 0;
        host->player()->regCallBack([](void* count) { ++*static_cast<int*>(count); },
                                    called_back ? &announced : nullptr);
        const auto finish = [this] {
            QMetaObject::invokeMethod(
                host->player(), [] {}, Qt::BlockingQueuedConnection);
        };
        const auto fetch = [this] {
            QList<AudioEvents> events;
            while (events.isEmpty() || events.last().eventId != EventClosed) // a playback runs an event loop
                for (AudioEvents event; (event = host->player()->audioEvent()).eventId != EventNone;)
                    events.append(event);
            return events;
        };
        host->player()->setSpeed(2.0);
        host->play(media("tone.wav"));
        finish();
        QList<AudioEvents> events = fetch();
        QCOMPARE(called_back ? announced == events.size() && announced > 8 : events.size() == 5, true);
        QVERIFY(events.at(events.size() - 3).info.value("PlayTime").toLongLong() > 2800);

        for (int i = 0; i < 200; ++i)
            host->play(media("missing.mp3"));
        finish();
        host->play(media("tone.wav"));
        finish();
        events = fetch();
        QVERIFY2(events.size() == 256 || events.size() == 257, qPrintable(QString::number(events.size())));
        QVERIFY(events.at(events.size() - 3).info.value("PlayTime").toLongLong() > 2800);
    }
}

void TestPlayer::seek_movesPosition_duringPlayback()
{
    host->play(media("long.mp3"));
    QTRY_VERIFY(host->count(EventProgress) > 0);
    for (const qint64 target_ms : {10'000, 2'000, 19'000}) {
        host->player()->seekPos(target_ms);
        QTRY_VERIFY2(host->wasNear(target_ms, 300), qPrintable(QString::number(host->playTime())));
    }
    host->player()->seekPos(std::numeric_limits<qint64>::max()); // at most the end
    QTRY_COMPARE(host->count(EventClosed), 1);
}

void TestPlayer::closeAudioOutput_playsOnInSilence()
{
    Monitor monitor;
    host->play(media("tone.wav"));
    QTRY_VERIFY(host->playTime() > 1000);
    host->player()->closeAudioOutput();
    QTRY_COMPARE_WITH_TIMEOUT(host->order(), kWhole, 10'000);
    QVERIFY(std::abs(host->playTime() - 3000) < 100);
    const auto events = host->all();
    const double lasted_s =
        std::chrono::duration<double>(host->last(EventClosed).time - events.front().time).count();
    qInfo("3 s lasted %.3f s", lasted_s);
    QVERIFY(lasted_s > 2.6 && lasted_s < 4); // a busy machine wakes late
    QVERIFY(monitor.stop().duration_s < 1.5);
}

void TestPlayer::transport_staysConsistent_underRandomCallsFromFourThreads()
{
    const unsigned seed = std::random_device()();
    qInfo("seed %u", seed);
    const QStringList sources{media("tone.wav"), media("long.mp3"), media("short.wav"), media("text.mp3")};
    const auto work = [&sources](unsigned thread_seed) {
        std::mt19937 random(thread_seed);
        const auto pick = [&random](int end) {
            return static_cast<int>(random() % static_cast<unsigned>(end));
        };
        AudioPlayer* player = PlayerHost::player();
        for (int i = 0; i < 250; ++i) {
            const QString& source = sources[pick(sources.size())];
            const std::function<void()> calls[] = {
                [&] { PlayerHost::play(source, pick(2) * pick(5000)); },
                [&] { PlayerHost::play(source); },
                [&] { player->pause(true); },
                [&] { player->pause(false); },
                [&] { player->stop(pick(40) == 0); },
                [&] { player->seekPos(pick(25'000)); },
                [&] { player->setSpeed(0.5 + pick(30) / 10.0); },
                [&] { player->handleDeviceChanged(); },
                [&] { player->breakPlay(pick(2) ? source : QString(), 0); },
                [&] { player->closeAudioOutput(); },
            };
            calls[pick(int(std::size(calls)))]();
            std::this_thread::sleep_for(std::chrono::milliseconds(pick(8)));
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back(work, seed + i);
    for (std::thread& thread : threads)
        thread.join();

    // Whatever came before, a source plays as ever.
    host->settle();
    host->player()->setSpeed(1.0);
    host->forget();
    host->play(media("plain.wav")); // no request that is left over names it
    // A playback that was under way may still report its end first.
    QTRY_VERIFY2(host->order().endsWith("Duration Started Progress Finished Closed"),
                 qPrintable(host->order()));
}

QTEST_MAIN(TestPlayer)
#include "test_player.moc"
