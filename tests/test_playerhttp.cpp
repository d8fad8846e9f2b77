#include "multimedia/audioplayer/playback.h"
#include "tests/support/files.h"
#include "tests/support/httpserver.h"
#include "tests/support/incase.h"
#include "tests/support/monitor.h"
#include "tests/support/playerhost.h"
#include "tests/support/row.h"

#include <QtTest/QtTest>

#include <sys/time.h>

#include <atomic>
#include <cmath>
#include <utility>

namespace {
std::atomic<time_t> wall_clock_shift_s = 0;
} // namespace

/// Stands before the system's own function: the wall clock, which its owner may set at any time.
extern "C" int gettimeofday(timeval* time, void* /*zone*/) noexcept
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    *time = {now.tv_sec + wall_clock_shift_s, now.tv_nsec / 1000};
    return 0;
}

namespace {
QByteArray content(const char* name)
{
    QByteArray bytes = contentOf(media(name));
    if (bytes.isEmpty())
        qFatal("%s is missing", name);
    return bytes;
}

constexpr HttpServer::Behaviour kSilent = {false, true, 0, -1, -1};
constexpr HttpServer::Behaviour kStalling = {true, true, 0, 80'000, -1};

HttpServer::Behaviour cutting(int64_t after)
{
    return {true, true, 0, -1, after};
}
} // namespace

/// The player in front of servers of every temper.
class TestPlayerHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { host = std::make_unique<PlayerHost>(); }
    void cleanup() { host.reset(); }

    void play_isHeardWhole_fromServer();
    void play_takesHintForDuration_whenThatIsGuess();
    void seek_movesByBytes_andKeepsPosition();
    void seek_goesOn_whenServerRefusesRanges();
    void play_goesOn_whenServerCutsAndComesBack();
    void play_endsWithoutFinish_whenCutNearTheEnd();
    void play_fails_whenServerIsSilentForTooLong();
    void play_isWhole_whenClockIsSet();
    void server_isLeftAtOnce_data();
    void server_isLeftAtOnce();
    void pause_resumesFromServer_whereItLeft();
    void interrupt_isNotLost_whenFileIsInspectedMeanwhile();
    void release_leavesStalledServer_atOnce();

private:
    void waitForStall(const HttpServer& server);

    std::unique_ptr<PlayerHost> host;
};

void TestPlayerHttp::play_isHeardWhole_fromServer()
{
    // The last one is slower than the tone at first.
    for (const auto& [ranges, bytes_per_second] : {std::pair(true, 0), {false, 0}, {true, 400'000}}) {
        const InCase in_case(ranges, bytes_per_second);
        host->forget();
        const HttpServer server(content("plain.wav"), {true, ranges, bytes_per_second, -1, -1});
        Monitor monitor;
        host->play(server.url());
        QTRY_COMPARE(host->count(EventClosed), 1);
        QCOMPARE(host->order(),
                 QStringLiteral("Underload Duration Started Flowing Progress Finished Closed"));
        const Monitor::Sound sound = monitor.stop();
        QVERIFY(std::abs(sound.duration_s - 1) < 0.05);
        QVERIFY(sound.longest_gap_s < 0.06);
    }
}

void TestPlayerHttp::play_takesHintForDuration_whenThatIsGuess()
{
    // Raw AAC has no length of its own.
    const HttpServer guess(content("plain.aac"), {});
    host->play(guess.url(), 0, 1234);
    QTRY_COMPARE(host->count(EventClosed), 1);
    QCOMPARE(host->last(EventDuration).event.info.value("Duration").toLongLong(), 1234);

    const HttpServer known(content("short.wav"), {});
    host->play(known.url(), 0, 1234);
    QTRY_COMPARE(host->count(EventClosed), 2);
    QCOMPARE(host->last(EventDuration).event.info.value("Duration").toLongLong(), 100);
}

void TestPlayerHttp::seek_movesByBytes_andKeepsPosition()
{
    const HttpServer server(content("long.mp3"), {});
    host->play(server.url(), 5000);
    QTRY_VERIFY(host->order().startsWith("Underload Duration Started Sought Underload Flowing Progress"));
    QVERIFY(host->wasNear(5000, 500));
    for (const qint64 target_ms : {15'000, 700, 10'000}) {
        host->forget();
        host->player()->seekPos(target_ms);
        QTRY_VERIFY(host->order().contains("Sought Underload Flowing Progress"));
        QVERIFY2(host->wasNear(target_ms, 700), qPrintable(QString::number(host->playTime())));
    }
}

void TestPlayerHttp::seek_goesOn_whenServerRefusesRanges()
{
    const HttpServer server(content("long.mp3"), {true, false, 0, -1, -1});
    host->play(server.url());
    QTRY_VERIFY(host->count(EventProgress) > 0);
    host->player()->seekPos(15'000);
    QTRY_VERIFY(host->order().contains("Sought Underload Flowing Progress"));
}

void TestPlayerHttp::play_goesOn_whenServerCutsAndComesBack()
{
    const QByteArray file = content("tone.wav");
    HttpServer server(file, cutting(file.size() / 2));
    Monitor monitor;
    host->play(server.url());
    QTRY_VERIFY(server.requests() >= 3); // the first, the one at once, the one of the retry
    server.setBehaviour({});
    QTRY_COMPARE_WITH_TIMEOUT(host->count(EventClosed), 1, 10'000);
    QCOMPARE(host->order(), QStringLiteral("Underload Duration Started Flowing Progress Finished Closed"));
    const Monitor::Sound sound = monitor.stop();
    qInfo("heard %.3f s, longest gap %.3f s", sound.duration_s, sound.longest_gap_s);
    QVERIFY(std::abs(sound.duration_s - sound.longest_gap_s - 3) < 0.3);
}

void TestPlayerHttp::play_endsWithoutFinish_whenCutNearTheEnd()
{
    const QByteArray file = content("plain.wav");
    const HttpServer server(file, cutting(file.size() * 9 / 10));
    host->play(server.url());
    QTRY_COMPARE(host->count(EventClosed), 1);
    QCOMPARE(host->order(), QStringLiteral("Underload Duration Started Flowing Progress Closed"));
}

void TestPlayerHttp::waitForStall(const HttpServer& server)
{
    QTRY_VERIFY(host->count(EventProgress) > 0);
    QElapsedTimer quiet;
    quiet.start();
    std::pair<int64_t, size_t> last;
    QTRY_VERIFY(
        (std::exchange(last, std::pair(server.sent(), host->all().size())) == last || quiet.restart() < 0) &&
        quiet.hasExpired(200));
}

void TestPlayerHttp::play_fails_whenServerIsSilentForTooLong()
{
    QCOMPARE(multimedia::g_readTimeout.exchange(std::chrono::milliseconds(1500)), std::chrono::seconds(20));
    const HttpServer server(content("long.mp3"), kStalling);
    host->play(server.url(), 8000);
    waitForStall(server);
    const auto start = PlayerHost::Clock::now();
    QTRY_COMPARE(host->count(EventClosed), 1);
    multimedia::g_readTimeout = std::chrono::seconds(20);
    const std::chrono::duration<double> time = host->last(EventClosed).time - start;
    qInfo("left after another %.3f s", time.count());
    QVERIFY(time.count() > 0.5);
    QVERIFY(host->order().endsWith("Progress Error(av read frame failed.) Closed"));
}

void TestPlayerHttp::play_isWhole_whenClockIsSet()
{
    // So slow that the player always waits in a read.
    const HttpServer server(content("plain.wav"), {true, true, 100'000, -1, -1});
    host->play(server.url());
    while (host->count(EventClosed) == 0) {
        wall_clock_shift_s += 60;
        QTest::qWait(20);
    }
    QCOMPARE(host->order(), QStringLiteral("Underload Duration Started Flowing Progress Finished Closed"));
}

void TestPlayerHttp::server_isLeftAtOnce_data()
{
    columns<bool, bool, QString>("answers", "pause", "order");
    row("breakPlay, silent from the first", false, false, "^Underload Flowing Closed$");
    row("pause, silent from the first", false, true, "^Underload Flowing Closed$");
    // A demuxer may make a last packet of what it has.
    row("breakPlay, stalled", true, false,
        "(Error\\(av read frame failed.\\) Closed|Progress Finished Closed)$");
    row("pause, stalled", true, true, "Paused Closed$");
}

void TestPlayerHttp::server_isLeftAtOnce()
{
    QFETCH(bool, answers);
    QFETCH(bool, pause);
    QFETCH(QString, order);
    const HttpServer server(content("long.mp3"), answers ? kStalling : kSilent);
    host->play(server.url(), answers ? 8000 : 0);
    QTRY_VERIFY(server.requests() > 0);
    if (answers)
        waitForStall(server);
    const auto start = PlayerHost::Clock::now();
    if (pause)
        host->player()->pause(true);
    else
        host->player()->breakPlay("other", 0);
    QTRY_COMPARE(host->count(EventClosed), 1);
    const std::chrono::duration<double, std::milli> time = host->last(EventClosed).time - start;
    qInfo("left after %.1f ms", time.count());
    QVERIFY(time.count() < 1000);
    QVERIFY2(host->order().contains(QRegularExpression(order)), qPrintable(host->order()));
}

void TestPlayerHttp::pause_resumesFromServer_whereItLeft()
{
    const HttpServer server(content("long.mp3"), {});
    host->play(server.url(), 6000);
    QTRY_VERIFY(host->playTime() > 6300);
    host->player()->pause(true);
    QTRY_COMPARE(host->count(EventClosed), 1);
    const qint64 paused_ms = host->playTime();
    host->forget();
    host->player()->pause(false);
    QTRY_VERIFY(host->order().contains("Progress"));
    QVERIFY(host->wasNear(paused_ms, 500));
}

void TestPlayerHttp::interrupt_isNotLost_whenFileIsInspectedMeanwhile()
{
    const HttpServer server(content("short.wav"), kSilent);
    host->play(server.url());
    QTRY_COMPARE(server.requests(), 1);
    host->player()->breakPlay("other", 0);
    for (int i = 0; i < 20; ++i)
        QCOMPARE(AudioPlayer::duration(media("short.wav")), 100);
    QTRY_COMPARE(host->count(EventClosed), 1);
}

void TestPlayerHttp::release_leavesStalledServer_atOnce()
{
    const HttpServer server(content("long.mp3"), kStalling);
    host->play(server.url(), 8000);
    waitForStall(server);
    QElapsedTimer timer;
    timer.start();
    host->player()->release();
    const qint64 ms = timer.elapsed();
    qInfo("left after %lld ms", ms);
    QVERIFY(ms < 1000);
    QVERIFY(!host->player()->thread()->isRunning());

    // Nothing is left that a late call could disturb.
    host->play(server.url());
    host->player()->pause(true);
    host->player()->pause(false);
    host->player()->stop(true);
    host->player()->seekPos(1);
    host->player()->release();
}

QTEST_MAIN(TestPlayerHttp)
#include "test_playerhttp.moc"
