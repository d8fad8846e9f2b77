#include "multimedia/speechrecognizer_linux/localspeechservice.h"
#include "multimedia/speechrecognizer_linux/pocketsphinxdecoder.h"
#include "multimedia/speechrecognizer_linux/voskengine.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/row.h"
#include "tests/support/soundcheck.h"
#include "tests/support/speechlistener.h"

extern "C" {
#include <libavutil/log.h>
}

#include <QtTest/QtTest>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

/// The recognisers of this system, on spoken sentences: every test runs with each. Of Qt there is the test
/// frame only, and Vosk's reading of JSON.

using speechRecognize::LocalSpeechService;
using speechRecognize::PcmAudio;
using speechRecognize::PocketSphinxEngine;
using speechRecognize::SpeechService;
using speechRecognize::VoskEngine;

namespace {

const QString kFood = "there is enough food on the table for everybody";

/// The service with one engine, by its name. Vosk has a model that was made for the sentences spoken here.
std::unique_ptr<SpeechService> makeService(const QString& engine)
{
    LocalSpeechService::Engines engines;
    if (engine == "vosk")
        engines.push_back(
            std::make_unique<VoskEngine>(std::vector<std::string>{TEST_VOSK_LIBRARY, "libvosk.so"},
                                         std::vector<std::string>{dataFile("vosk").toStdString()}));
    else
        engines.push_back(std::make_unique<PocketSphinxEngine>());
    return std::make_unique<LocalSpeechService>(std::move(engines));
}

std::string spoken(const std::string& name)
{
    return std::string(kMediaFolder) + "/" TEST_MEDIA "/" + name;
}

template<typename Sample>
PcmAudio pcm(const std::vector<std::int16_t>& mono, PcmAudio::Format format, double scale, int channels)
{
    auto samples = std::make_shared<std::vector<Sample>>();
    for (const std::int16_t value : mono)
        samples->insert(samples->end(), std::size_t(channels), Sample(value * scale));
    PcmAudio audio;
    audio.format = format;
    audio.sample_rate = 16000;
    audio.channels = channels;
    audio.interleaved = true;
    audio.data = reinterpret_cast<const std::uint8_t*>(samples->data());
    audio.size = samples->size() * sizeof(Sample);
    audio.owner = samples;
    return audio;
}

} // namespace

class TestSpeechService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase_data();
    void initTestCase() { av_log_set_level(AV_LOG_FATAL); }
    void init();
    void cleanup() { service.reset(); }

    void file_isUnderstood_data();
    void file_isUnderstood();
    void buffer_isUnderstood();
    void badBuffer_ends();
    void noSpeech_ends_withoutWords();
    void speech_isFound_amidstMusic();
    void text_isTheSame_whateverWasHeardBefore();
    void cancel_endsTask_inAnHourOfTalk();
    void tasks_endOnce_underCancelsFromTwoThreads();
    void destructor_tellsEveryEnd();
    void missingModel_isTold();

private:
    std::unique_ptr<SpeechService> service;
};

void TestSpeechService::initTestCase_data()
{
    columns<QString>("engine");
    row("pocketsphinx", QString("pocketsphinx"));
    if (!makeService("vosk")->models().empty())
        row("vosk", QString("vosk"));
    else
        qInfo("no libvosk.so is installed, nor " TEST_VOSK_LIBRARY ": Vosk is not tested");
}

void TestSpeechService::init()
{
    QFETCH_GLOBAL(QString, engine);
    service = makeService(engine);
}

void TestSpeechService::file_isUnderstood_data()
{
    columns<QString, int>("text", "utterances");
    for (const char* name :
         {"food.wav", "stereo.m4a", "surround.flac", "float64.wav", "food.mp3", "food.aac", "film.mp4"})
        QTest::newRow(name) << kFood + "$" << 1;
    QTest::newRow("telephone.wav") << "on the table for everybody$" << 1; // the band is too narrow for an f
    QTest::newRow("damaged.aac") << "^there is enough" << 1;
    QTest::newRow("two.wav") << "half past five there is enough food" << 2; // a pause between
    QTest::newRow("breathless.wav") << "must be finished" << 2;             // cut where it grows too long
}

void TestSpeechService::file_isUnderstood()
{
    QFETCH_GLOBAL(QString, engine);
    QFETCH(QString, text);
    if (engine == "vosk" && QLatin1String(QTest::currentDataTag()) == "telephone.wav")
        return; // its model here knows no telephone
    Listener listener;
    QVERIFY(service->recognizeFile(spoken(QTest::currentDataTag()), "en_US", listener.handler()) != 0);
    QVERIFY(listener.awaitEnd());
    QVERIFY(!listener.failed);
    QVERIFY2(listener.text().contains(QRegularExpression(text)), qPrintable(listener.text()));
    QVERIFY(listener.partials() > 4);
    QTEST(listener.utterances(), "utterances");
}

void TestSpeechService::buffer_isUnderstood()
{
    const auto mono = soundcheck::samplesOf(contentOf(media("food.wav")).mid(78)); // FFmpeg's header
    QVERIFY(mono.size() > 16000);
    std::vector<PcmAudio> audios = {pcm<std::int16_t>(mono, PcmAudio::Format::Int16, 1, 1),
                                    pcm<std::int32_t>(mono, PcmAudio::Format::Int32, 65536, 2),
                                    pcm<float>(mono, PcmAudio::Format::Float32, 1 / 32768.0, 1),
                                    pcm<double>(mono, PcmAudio::Format::Float64, 1 / 32768.0, 2)};
    audios[0].size -= 1; // the last frame is not whole
    audios[0].interleaved = false;
    for (PcmAudio& audio : audios) {
        const InCase in_case(int(audio.format));
        Listener listener;
        QVERIFY(service->recognizeBuffer(audio, {}, listener.handler()) != 0);
        audio = {};
        QVERIFY(listener.awaitEnd());
        QVERIFY(!listener.failed);
        QCOMPARE(listener.text(), kFood);
    }
}

void TestSpeechService::badBuffer_ends()
{
    PcmAudio audio = pcm<std::int16_t>(std::vector<std::int16_t>(100), PcmAudio::Format::Int16, 1, 1);
    for (const auto& [rate, channels, size] : {std::tuple(16000.0, 1, 0),
                                               {16000.0, 1, 1}, // half a sample
                                               {0.0, 1, 200},
                                               {-16000.0, 1, 200},
                                               {std::nan(""), 1, 200},
                                               {1e12, 1, 200},
                                               {16000.0, 0, 200},
                                               {16000.0, -2, 200},
                                               {16000.0, 1 << 30, 200}}) {
        const InCase in_case(rate, channels, size);
        audio.sample_rate = rate;
        audio.channels = channels;
        audio.size = std::size_t(size);
        Listener listener;
        QVERIFY(service->recognizeBuffer(audio, {}, listener.handler()) != 0);
        QVERIFY2(listener.awaitEnd(), qPrintable(QString("%1 Hz, %2 channels").arg(rate).arg(channels)));
        QCOMPARE(listener.text(), QString());
    }
}

void TestSpeechService::noSpeech_ends_withoutWords()
{
    for (const char* name : {"silence.wav", "noise.wav", "tone.wav", "band.wav", "singing.wav", "picture.mp4",
                             "truncated.wav", "truncated.m4a", "empty.wav", "text.wav", "missing.wav", "."}) {
        Listener listener;
        QVERIFY2(service->recognizeFile(spoken(name), {}, listener.handler()) != 0, name);
        QVERIFY2(listener.awaitEnd(), name);
        QVERIFY2(listener.text().isEmpty(), name);
    }
}

void TestSpeechService::speech_isFound_amidstMusic()
{
    Listener listener;
    service->recognizeFile(spoken("amidst.wav"), {}, listener.handler());
    QVERIFY(listener.awaitEnd());
    // The detector takes its time to believe in either, but of 16 s of music some seconds are heard.
    QVERIFY2(listener.text().contains("on the table for everybody"), qPrintable(listener.text()));
    QVERIFY2(listener.text().count(' ') < 18, qPrintable(listener.text()));
}

void TestSpeechService::text_isTheSame_whateverWasHeardBefore()
{
    QString first;
    for (const char* before : {"train.wav", "noise.wav", "report.wav"}) {
        Listener other;
        Listener listener;
        service->recognizeFile(spoken(before), {}, other.handler());
        service->recognizeFile(spoken("train.wav"), {}, listener.handler());
        QVERIFY(other.awaitEnd());
        QVERIFY(listener.awaitEnd());
        if (first.isEmpty())
            first = listener.text();
        QCOMPARE(listener.text(), first);
    }
}

void TestSpeechService::cancel_endsTask_inAnHourOfTalk()
{
    Listener talk;
    Listener waiting;
    const auto task = service->recognizeFile(spoken("hour.mp3"), {}, talk.handler());
    const auto next = service->recognizeFile(spoken("hour.mp3"), {}, waiting.handler());
    QVERIFY(talk.awaitResult());
    for (auto [number, listener] : {std::pair(next, &waiting), std::pair(task, &talk)}) {
        QVERIFY(!listener->ended());
        service->cancel(number);
        QVERIFY(listener->awaitEnd());
        QVERIFY(listener->failed);
        service->cancel(number);
    }
    service->cancel(0);
    service->cancel(12345);
    // The decoder is free again.
    Listener food;
    service->recognizeFile(spoken("food.wav"), {}, food.handler());
    QVERIFY(food.awaitEnd());
    QCOMPARE(food.text(), kFood);
    QCOMPARE(talk.later + waiting.later, 0);
}

void TestSpeechService::tasks_endOnce_underCancelsFromTwoThreads()
{
    const unsigned seed = std::random_device()();
    qInfo("seed %u", seed);
    constexpr std::size_t kTasks = 40;
    std::vector<Listener> listeners(kTasks);
    std::vector<std::atomic<SpeechService::Task>> numbers(kTasks);
    const auto cancelSome = [&](unsigned thread_seed) {
        std::mt19937 random(thread_seed);
        for (int i = 0; i < 200; ++i) {
            service->cancel(numbers[random() % kTasks]);
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 10));
        }
    };
    std::thread one(cancelSome, seed);
    std::thread two(cancelSome, seed + 1);
    std::mt19937 random(seed + 2);
    const char* const names[] = {"food.wav", "hour.mp3", "silence.wav", "truncated.m4a"};
    for (std::size_t i = 0; i < kTasks; ++i) {
        numbers[i] = service->recognizeFile(spoken(names[random() % 4]), {}, listeners[i].handler());
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
    }
    one.join();
    two.join();
    for (const auto& number : numbers)
        service->cancel(number);
    for (Listener& listener : listeners)
        QVERIFY(listener.awaitEnd());
    for (const Listener& listener : listeners)
        QCOMPARE(listener.later.load(), 0);
}

void TestSpeechService::destructor_tellsEveryEnd()
{
    Listener running;
    Listener waiting;
    service->recognizeFile(spoken("hour.mp3"), {}, running.handler());
    service->recognizeFile(spoken("hour.mp3"), {}, waiting.handler());
    QVERIFY(running.awaitResult());
    service.reset();
    QVERIFY(running.ended() && running.failed);
    QVERIFY(waiting.ended() && waiting.failed);
}

void TestSpeechService::missingModel_isTold()
{
    using Authorization = SpeechService::Authorization;
    QCOMPARE(service->authorizationStatus(), Authorization::Authorized);
    QVERIFY(service->isAvailable("en_GB"));
    QVERIFY(!service->isAvailable("de_DE"));

    LocalSpeechService::Engines none;
    none.push_back(std::make_unique<VoskEngine>(std::vector<std::string>{"/no/libvosk.so"},
                                                std::vector<std::string>{"/no/vosk"}));
    none.push_back(std::make_unique<PocketSphinxEngine>("/no/model"));
    LocalSpeechService other(std::move(none));
    {
        const LogCapture log;
        QCOMPARE(other.authorizationStatus(), Authorization::Restricted);
        QCOMPARE(log.count("install the package pocketsphinx-en-us"), 1);
        QCOMPARE(log.count("/no/vosk"), 1);
        QCOMPARE(log.count(""), 1);
    }
    QVERIFY(!other.isAvailable("en_US"));
    auto answer = Authorization::NotDetermined;
    other.requestAuthorization([&](Authorization given) { answer = given; });
    QCOMPARE(answer, Authorization::Restricted);
    Listener listener;
    other.recognizeFile(spoken("food.wav"), {}, listener.handler());
    QVERIFY(listener.awaitEnd());
    QVERIFY(listener.failed);
}

QTEST_GUILESS_MAIN(TestSpeechService)
#include "test_speechservice.moc"
