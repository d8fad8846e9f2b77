#include "multimedia/devicemgr/devicemgr.h"
#include "tests/support/files.h"
#include "tests/support/monitor.h"
#include "tests/support/playerhost.h"
#include "tests/support/soundserver.h"

#include <QtMultimedia/QAudioDeviceInfo>
#include <QtTest/QtTest>

#include <cmath>

namespace {
const QString kTone = media("tone.wav");
const QString kLong = media("long.mp3");
const QString kWhole = QStringLiteral("Duration Started Progress Finished Closed");
} // namespace

/// Playback while the desktop changes under it. The order matters: the later tests end the sound server.
class TestPlayerDevices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { host = std::make_unique<PlayerHost>(); }
    void cleanup() { host.reset(); }

    void playback_movesToNewSink_whenDefaultChanges();
    void playback_movesToOtherSink_whenSinkIsRemoved();
    void playback_soundsAgain_whenSinkReturns();
    void playback_soundsAgain_whenServerReturns();
    void playback_isSilentAndWhole_withoutServer();

private:
    /// Seconds of real time from the first event to the last.
    double lasted() const;
    /// How far a tone may be off after its stream was moved.
    static double movedTolerance_hz(double usual_hz);
    static DeviceManager::DeviceModel* outputs()
    {
        return DeviceManager::DeviceMgr::instance()->audioOutputModel();
    }

    std::unique_ptr<PlayerHost> host;
    SoundServer server;
};

/// PipeWire was heard to play a stream that it moves up to 2 % faster for a while; at the rate of another
/// sink it would be 9 %.
double TestPlayerDevices::movedTolerance_hz(double usual_hz)
{
    return SoundServer::control({"info"}).contains("PipeWire") ? 12 : usual_hz;
}

double TestPlayerDevices::lasted() const
{
    const auto events = host->all();
    return std::chrono::duration<double>(events.back().time - events.front().time).count();
}

void TestPlayerDevices::playback_movesToNewSink_whenDefaultChanges()
{
    const QString module = server.addSink("headset");
    server.control({"set-default-sink", "spk"}); // some servers remember who was it before
    Monitor old_sink;
    Monitor new_sink("headset");
    host->play(kTone);
    QTRY_VERIFY(host->playTime() > 1000);
    server.control({"set-default-sink", "headset"});
    QTRY_COMPARE(host->order(), kWhole);
    const Monitor::Sound before = old_sink.stop();
    const Monitor::Sound after = new_sink.stop();
    qInfo("heard %.3f s on the old sink, %.3f s on the new one, longest gap %.3f s", before.duration_s,
          after.duration_s, after.longest_gap_s);
    QVERIFY(before.duration_s > 0.6 && before.duration_s < 1.8);
    QVERIFY(after.duration_s > 1.2 && after.duration_s < 2.4);
    QVERIFY(before.duration_s + after.duration_s > 2.5);
    QVERIFY(std::abs(after.frequency_hz - 440) < movedTolerance_hz(6));
    QVERIFY(after.longest_gap_s <
            0.3); // the server moves the old output for a moment, then the new one fills up
    server.unload(module);
    server.control({"set-default-sink", "spk"});
}

void TestPlayerDevices::playback_movesToOtherSink_whenSinkIsRemoved()
{
    const QString module = server.addSink("headset");
    server.control({"set-default-sink", "headset"});
    QTRY_COMPARE(outputs()->defaultDevice(), QStringLiteral("headset"));
    QTRY_COMPARE(QAudioDeviceInfo::defaultOutputDevice().deviceName(), QStringLiteral("headset"));
    host->play(kTone);
    QTRY_VERIFY(host->playTime() > 1000);
    Monitor fallback("spk");
    server.unload(module);
    QTRY_COMPARE(host->order(), kWhole);
    const Monitor::Sound sound = fallback.stop();
    qInfo("heard %.3f s of %.1f Hz on the sink that is left", sound.duration_s, sound.frequency_hz);
    QVERIFY(sound.duration_s > 1.2);
    QVERIFY(std::abs(sound.frequency_hz - 440) < movedTolerance_hz(4));
}

void TestPlayerDevices::playback_soundsAgain_whenSinkReturns()
{
    host->play(kLong);
    QTRY_VERIFY(host->playTime() > 300);
    server.control({"unload-module", "module-null-sink"});
    QTRY_COMPARE(outputs()->count(), 0);
    const qint64 removed_ms = host->playTime();
    QTRY_VERIFY(host->playTime() > removed_ms + 500);
    server.addSink("spk");
    Monitor monitor;
    QTRY_VERIFY(host->playTime() > removed_ms + 2000);
    const Monitor::Sound sound = monitor.stop();
    qInfo("heard %.3f s after the return", sound.duration_s);
    QVERIFY(sound.duration_s > 0.3);
}

void TestPlayerDevices::playback_soundsAgain_whenServerReturns()
{
    host->play(kLong);
    QTRY_VERIFY(host->playTime() > 300);
    server.kill();
    const qint64 killed_ms = host->playTime();
    QTRY_VERIFY(host->playTime() > killed_ms + 500);
    server.start();
    Monitor monitor;
    // Qt looks for a server after 3 s.
    QTRY_VERIFY_WITH_TIMEOUT(host->playTime() > killed_ms + 5500, 15'000);
    const Monitor::Sound sound = monitor.stop();
    qInfo("heard %.3f s after the return", sound.duration_s);
    QVERIFY(sound.duration_s > 0.5);
    QVERIFY(sound.longest_gap_s < 0.06);
}

void TestPlayerDevices::playback_isSilentAndWhole_withoutServer()
{
    server.kill();
    QTRY_COMPARE(outputs()->count(), 0);
    host->play(kTone, 1500);
    QTRY_COMPARE(host->order(), kWhole);
    qInfo("1.5 s lasted %.3f s", lasted());
    QVERIFY(lasted() > 1.2 && lasted() < 2.5);
    QVERIFY(std::abs(host->playTime() - 3000) < 100);
}

QTEST_MAIN(TestPlayerDevices)
#include "test_playerdevices.moc"
