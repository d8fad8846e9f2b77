#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/recognize/recognizemanger.h"
#include "multimedia/speechrecognizer/speechrecognizer.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/scriptedspeech.h"

#include <QtTest/QtTest>

#include <memory>
#include <utility>
#include <vector>

/// The queue and the recogniser, on a service that follows a script: what `RecordEngine` tells.

using Authorization = speechRecognize::SpeechService::Authorization;
using speechRecognize::PcmAudio;

namespace {

constexpr int kPatience_ms = 60'000;

QVariantMap pcm(const QString& format = "PCMFormatInt16")
{
    return {{"pcmData", QByteArray("12345678")},
            {"pcmInfo",
             QVariantMap{
                 {"sampleFormat", format}, {"sampleRate", 8000.0}, {"channels", 2}, {"interleaved", true}}}};
}

QVariantMap without(QVariantMap map, const char* key)
{
    map.remove(QLatin1String(key));
    return map;
}

} // namespace

class TestRecognize : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { service = std::make_unique<ScriptedSpeech>(); }
    void cleanup();

    void texts_startAnew_whenSegmentsFall();
    void files_runInOrder_askedForOnce();
    void batch_skipsIncompleteEntries();
    void buffer_reachesService();
    void badRequest_endsFalse_andNextFollows();
    void authorization_startsOrEmptiesQueue();
    void language_fallsBack_onSystems();
    void models_areTold();
    void cancelBatchRecognize_dropsWaiting_andEndsHeadWhenReported();
    void cancelAllRecognize_isSilent_andNextAsksAfresh();
    void lateReport_isNobodys();
    void completion_mayCancelAll_andBeginAnew();
    void refusedTask_completes();
    void releaseInstance_silencesTask_andMakesRoom();
    void system_understandsFilesAndBuffers();

private:
    /// Lets the queued reports through; what came since the last time, as "id:text", "id=completed".
    QStringList told();
    void request(const char* id) { engine->recognizeFile(QLatin1String(id), file.fileName()); }

    RecordEngine* engine = nullptr;
    QTemporaryFile file;
    std::unique_ptr<ScriptedSpeech> service;
    QStringList lines;
};

void TestRecognize::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    qputenv("LC_ALL", "en_US.UTF-8");
    QVERIFY(file.open());
    engine = RecordEngine::instance();
    connect(engine, &RecordEngine::speechRecognizedResultChanged, this,
            [this](const QString& id, const QString& text) { lines += id + QLatin1Char(':') + text; });
    connect(engine, &RecordEngine::recognizeCompletedChanged, this,
            [this](const QString& id, bool completed) {
                lines += id + (completed ? QLatin1String("=true") : QLatin1String("=false"));
            });
}

void TestRecognize::cleanup()
{
    engine->releaseInstance();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(told(), QStringList());
    service.reset();
}

QStringList TestRecognize::told()
{
    int before = -1;
    while (std::exchange(before, lines.size()) != lines.size())
        QCoreApplication::sendPostedEvents();
    return std::exchange(lines, {});
}

void TestRecognize::texts_startAnew_whenSegmentsFall()
{
    request("one");
    service->tell(1, 1, "a");
    service->tell(1, 2, "a b");
    service->tell(1, 3, "a b c");
    service->tell(1, 1, "d");
    service->tell(1, 1, "e");
    service->tell(1, 0, "");
    service->tell(1, 1, "f", true);
    QCOMPARE(told(), QString("one:a one:a_b one:a_b_c one:a_b_cd one:a_b_ce one:a_b_ce one:a_b_cef one=true")
                         .split(' ')
                         .replaceInStrings("_", " "));
    // The next one starts without a text.
    request("two");
    service->tell(2, 1, "g", true);
    QCOMPARE(told(), (QStringList{"two:g", "two=true"}));
}

void TestRecognize::files_runInOrder_askedForOnce()
{
    for (const char* id : {"one", "two", "one", "three"})
        request(id);
    const QStringList ids = {"one", "two", "three"};
    for (int task = 1; task <= 3; ++task) {
        QCOMPARE(service->tasks.size(), size_t(task));
        QCOMPARE(service->tasks.back().path, file.fileName().toStdString());
        service->tell(task, 1, "text");
        service->tell(task, 1, "text", true);
        QCOMPARE(told(),
                 (QStringList{ids[task - 1] + ":text", ids[task - 1] + ":text", ids[task - 1] + "=true"}));
    }
    QCOMPARE(service->asked, 1);
    request("one");
    QCOMPARE(service->asked, 2);
    QCOMPARE(service->tasks.size(), 4U);
    service->tell(4, 0, "", true);
    QCOMPARE(told(), (QStringList{"one:", "one=true"}));
}

void TestRecognize::batch_skipsIncompleteEntries()
{
    const QString path = file.fileName();
    const QVariantList files = {
        QVariantMap{{"recognizeId", "one"}, {"filePath", path}, {"language", "de_DE"}},
        QVariantMap{{"recognizeId", "two"}},
        QVariantMap{{"filePath", path}},
        "no map",
        QVariantMap{{"recognizeId", "three"}, {"filePath", path}},
        QVariantMap{{"recognizeId", "four"}, {"filePath", QString()}}};
    engine->recognizeBatchFiles(files);
    service->tell(1, 0, "", true);
    QCOMPARE(told(), (QStringList{"one:", "one=true"}));
    service->tell(2, 0, "", true);
    QCOMPARE(told(), (QStringList{"three:", "three=true", "four=false"}));
    QCOMPARE(service->tasks[0].locale, "de_DE");
    QCOMPARE(service->tasks[1].locale, "");
    engine->recognizeBatchFiles("no list");
}

void TestRecognize::buffer_reachesService()
{
    for (const auto& [name, format] : {std::pair("PCMFormatFloat32", PcmAudio::Format::Float32),
                                       {"PCMFormatFloat64", PcmAudio::Format::Float64},
                                       {"PCMFormatInt16", PcmAudio::Format::Int16},
                                       {"PCMFormatInt32", PcmAudio::Format::Int32}}) {
        const InCase in_case(name);
        // As QML calls it, without a language.
        QVERIFY(QMetaObject::invokeMethod(engine, "recognizeBuffer", Q_ARG(QString, "one"),
                                          Q_ARG(QVariantMap, pcm(name))));
        const PcmAudio& audio = service->tasks.back().audio;
        QVERIFY2(audio.format == format, name);
        QCOMPARE(audio.sample_rate, 8000.0);
        QCOMPARE(audio.channels, 2);
        QVERIFY(audio.interleaved);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(audio.data), int(audio.size)),
                 QByteArray("12345678"));
        service->tell(service->tasks.size(), 1, "a", true);
        QCOMPARE(told(), (QStringList{"one:a", "one=true"}));
    }
}

void TestRecognize::badRequest_endsFalse_andNextFollows()
{
    const QString invalid = "Parameter is invalid";
    std::vector<std::tuple<QString, QVariantMap, QString>> requests{
        {"/no/such/file.wav", {}, "Path is not exist: /no/such/file.wav"},
        {"/tmp", {}, "Path is not exist: /tmp"},
        {"", {}, invalid},
        {"", without(pcm(), "pcmData"), invalid},
        {"", without(pcm(), "pcmInfo"), invalid},
        {"", pcm("PCMFormatInt24"), "PCMFormat is not support"}};
    for (const char* key : {"sampleFormat", "sampleRate", "channels", "interleaved"}) {
        QVariantMap map = pcm();
        map[QStringLiteral("pcmInfo")] = without(map[QStringLiteral("pcmInfo")].toMap(), key);
        requests.emplace_back("", map, invalid);
    }
    for (const auto& [path, map, line] : requests) {
        const InCase in_case(path, map);
        const auto tasks = service->tasks.size();
        const LogCapture log;
        if (path.isEmpty())
            engine->recognizeBuffer("bad", map);
        else
            engine->recognizeFile("bad", path);
        request("good");
        QCOMPARE(service->tasks.size(), tasks);
        QCOMPARE(told(), QStringList("bad=false"));
        QCOMPARE(log.count(line), 1);
        service->tell(tasks + 1, 1, "a", true);
        QCOMPARE(told(), (QStringList{"good:a", "good=true"}));
    }
}

void TestRecognize::authorization_startsOrEmptiesQueue()
{
    constexpr auto kNotAsked = Authorization::NotDetermined;
    for (const auto& [status, answer, runs] :
         {std::tuple(Authorization::Authorized, kNotAsked, true),
          {Authorization::Restricted, kNotAsked, false},
          {Authorization::NotDetermined, Authorization::Authorized, true},
          {Authorization::NotDetermined, Authorization::Denied, false},
          {Authorization::Denied, Authorization::Authorized, true},
          {Authorization::Denied, Authorization::Restricted, false}}) {
        const InCase in_case("status", int(status), int(answer));
        service->status = status;
        QSignalSpy answers(engine->recognizeMgr(),
                           &speechRecognize::RecognizeManger::sigRequestedAuthorization);
        const bool asks = answer != kNotAsked;
        request("one");
        if (asks) {
            request("two");
            QCOMPARE(answers.count(), 0);
            QCOMPARE(service->questions.size(), 1U);
            service->answer(answer);
        }
        QCOMPARE(told(), QStringList());
        QCOMPARE(answers.count(), 1);
        QCOMPARE(answers[0][0].toBool(), runs);
        QCOMPARE(service->tasks.size(), runs ? 1U : 0U);
        QCOMPARE(engine->recognizeMgr()->header().isNull(), !runs);
        QCOMPARE(engine->recognizeMgr()->existRecognize("two"), runs && asks);
        cleanup();
        init();
    }
}

void TestRecognize::language_fallsBack_onSystems()
{
    for (const auto& [language, locale] :
         {std::pair("", ""), {"EN_us", ""}, {"de_DE", "de_DE"}, {"fr_FR", ""}}) {
        const InCase in_case(language);
        engine->recognizeFile("file", file.fileName(), language);
        engine->recognizeBuffer("buffer", pcm(), language);
        for (const char* id : {"file=true", "buffer=true"}) {
            QCOMPARE(service->tasks.back().locale, std::string(locale));
            service->fail(service->tasks.size());
            QCOMPARE(told(), QStringList(id));
        }
    }
}

void TestRecognize::models_areTold()
{
    const QVariantMap german = {{"recognizer", "Script"}, {"language", "de_DE"}};
    const QVariantMap chinese = {{"recognizer", "Script"}, {"language", "zh"}};
    QCOMPARE(engine->speechModels(), (QVariantList{german, chinese}));
    QCOMPARE(engine->answeringSpeechModel(), QVariantMap());
    request("one");
    QCOMPARE(engine->answeringSpeechModel(), german);
    service->fail(1);
    QCOMPARE(told(), QStringList("one=true"));
}

void TestRecognize::cancelBatchRecognize_dropsWaiting_andEndsHeadWhenReported()
{
    engine->cancelBatchRecognize({QStringLiteral("one")});
    for (const char* id : {"one", "three", "two"})
        request(id);
    service->tell(1, 1, "a");
    engine->cancelBatchRecognize({"three", "one", QString(), "unknown"});
    QVERIFY(!engine->recognizeMgr()->existRecognize("three"));
    QCOMPARE(service->tasks[0].cancels, 1);
    QCOMPARE(told(), QStringList("one:a"));
    // Its id is free, though it still stands there.
    request("one");
    QCOMPARE(engine->recognizeMgr()->header()->recognizeId, QString("one"));
    service->fail(1);
    QCOMPARE(told(), QStringList("one=true"));
    service->tell(2, 1, "b", true);
    QCOMPARE(told(), (QStringList{"two:b", "two=true"}));
    service->tell(3, 1, "c", true);
    QCOMPARE(told(), (QStringList{"one:c", "one=true"}));
    QCOMPARE(service->asked, 1);
}

void TestRecognize::cancelAllRecognize_isSilent_andNextAsksAfresh()
{
    request("one");
    request("two");
    engine->cancelAllRecognize();
    QCOMPARE(service->tasks[0].cancels, 1);
    service->tell(1, 1, "a");
    service->fail(1);
    QCOMPARE(told(), QStringList());
    request("one");
    QCOMPARE(service->asked, 2);
    service->tell(2, 1, "b", true);
    QCOMPARE(told(), (QStringList{"one:b", "one=true"}));
}

void TestRecognize::lateReport_isNobodys()
{
    // On its way to the queue, or on its way from the service.
    for (const bool is_told : {true, false}) {
        const InCase in_case(is_told);
        const auto number = service->tasks.size() + 1;
        request("old");
        if (is_told)
            service->tell(number, 1, "a", true);
        engine->cancelAllRecognize();
        request("new");
        if (!is_told)
            service->tell(number, 1, "a", true);
        QCOMPARE(told(), QStringList());
        service->tell(number + 1, 1, "b", true);
        QCOMPARE(told(), (QStringList{"new:b", "new=true"}));
    }
}

void TestRecognize::completion_mayCancelAll_andBeginAnew()
{
    QObject scope;
    request("one");
    request("two");
    connect(engine, &RecordEngine::recognizeCompletedChanged, &scope, [&](const QString& id) {
        if (id != QLatin1String("one"))
            return;
        engine->cancelAllRecognize();
        request("three");
    });
    service->fail(1);
    QCOMPARE(told(), QStringList("one=true"));
    QCOMPARE(service->tasks.size(), 2U);
    service->tell(2, 1, "c", true);
    QCOMPARE(told(), (QStringList{"three:c", "three=true"}));
}

void TestRecognize::refusedTask_completes()
{
    service->refuses = true;
    request("one");
    QCOMPARE(told(), QStringList("one=true"));
}

void TestRecognize::releaseInstance_silencesTask_andMakesRoom()
{
    request("one");
    request("two");
    service->tell(1, 1, "on its way");
    engine->releaseInstance();
    QCOMPARE(service->tasks[0].cancels, 1);
    service->fail(1);
    QCOMPARE(told(), QStringList());
    request("one");
    service->tell(2, 1, "a", true);
    QCOMPARE(told(), (QStringList{"one:a", "one=true"}));
    // A recogniser that was never used can go, too.
    engine->recognizeMgr()->releaseRecognize();
}

void TestRecognize::system_understandsFilesAndBuffers()
{
    service.reset();
    QSignalSpy ends(engine, &RecordEngine::recognizeCompletedChanged);
    const QString path = media("food.aac");
    engine->recognizeFile("file", path);
    engine->recognizeBuffer("buffer", engine->convertToPCM(path));
    QTRY_COMPARE_WITH_TIMEOUT(ends.count(), 2, kPatience_ms);
    const QString text = "there is enough food on the table for everybody";
    const QStringList all = told();
    for (const char* id : {"file", "buffer"}) {
        const int end = all.indexOf(QLatin1String(id) + "=true");
        QVERIFY(end > 0);
        QCOMPARE(all[end - 1], QLatin1String(id) + (":" + text));
        QVERIFY(all.filter(QLatin1String(id) + ":there").size() > 4);
    }
}

QTEST_GUILESS_MAIN(TestRecognize)
#include "test_recognize.moc"
