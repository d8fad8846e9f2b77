#include "multimedia/speechrecognizer_linux/localspeechservice.h"
#include "multimedia/speechrecognizer_linux/pocketsphinxdecoder.h"
#include "multimedia/speechrecognizer_linux/speechlanguage.h"
#include "multimedia/speechrecognizer_linux/voskengine.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/row.h"
#include "tests/support/speechlistener.h"

#include <QtTest/QtTest>

#include <utility>

/// Which model is chosen, what is refused, and how texts are written, with a library in the place of Vosk
/// that says what a script tells it to. What the real one understands is tested with the other recogniser.

using speechRecognize::LocalSpeechService;
using speechRecognize::PocketSphinxEngine;
using speechRecognize::SpeechEngine;
using speechRecognize::SpeechModel;
using speechRecognize::SpeechService;
using speechRecognize::VoskEngine;

namespace {

QString wholeModel()
{
    return dataFile("vosk/vosk-model-small-en-us-0.0");
}

/// Three seconds of speech.
std::string food()
{
    return media("food.wav").toStdString();
}

void copyFolder(const QString& from, const QString& to)
{
    QDirIterator files(from, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString target = to + files.next().mid(from.size());
        QVERIFY(QDir().mkpath(QFileInfo(target).path()));
        QVERIFY(QFile::copy(files.filePath(), target));
    }
}

/// An engine of the stand-in and the models of a folder.
std::unique_ptr<VoskEngine> makeEngine(const QString& models, std::string library = STANDIN_VOSK)
{
    return std::make_unique<VoskEngine>(std::vector<std::string>{"/no/libvosk.so", std::move(library)},
                                        std::vector<std::string>{"/no/folder", models.toStdString()});
}

std::unique_ptr<SpeechService> makeService(std::unique_ptr<SpeechEngine> engine,
                                           const std::string& packaged = "/no/packaged/model")
{
    LocalSpeechService::Engines engines;
    engines.push_back(std::move(engine));
    engines.push_back(packaged.empty() ? std::make_unique<PocketSphinxEngine>()
                                       : std::make_unique<PocketSphinxEngine>(packaged));
    return std::make_unique<LocalSpeechService>(std::move(engines));
}

} // namespace

class TestVosk : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void speechLanguage_readsEveryName();
    void models_areFound_byNameAndOrder();
    void choice_followsLanguages();
    void text_isWritten_asItsLanguageIs_data();
    void text_isWritten_asItsLanguageIs();
    void failure_endsTask();
    void modelThatCannotBeLoaded_isPassedOver();
    void brokenModel_isNamed_andPassedOver_data();
    void brokenModel_isNamed_andPassedOver();
    void library_mustBeWhole();

private:
    /// A model whose recogniser says what the script tells; its files are those of the real one.
    void addModel(const QString& name, const QByteArray& script = "=hello\n");

    std::unique_ptr<QTemporaryDir> folder;
};

void TestVosk::init()
{
    folder = std::make_unique<QTemporaryDir>();
    qputenv("LC_ALL", "fr_FR.UTF-8");
    qunsetenv("LANGUAGE");
}

void TestVosk::addModel(const QString& name, const QByteArray& script)
{
    copyFolder(wholeModel(), folder->filePath(name));
    writeFile(folder->filePath(name + "/script"), script);
}

void TestVosk::speechLanguage_readsEveryName()
{
    for (const auto& [locale, name] : {std::pair("zh_CN", "zh_CN"),
                                       {"zh-CN", "zh_CN"},
                                       {"zh", "zh"},
                                       {"cn", "zh"},
                                       {"ZH_cn", "zh_CN"},
                                       {"zh_Hans_CN.UTF-8", "zh_CN"},
                                       {"vn", "vi"},
                                       {"kz", "kk"},
                                       {"sr_RS@latin", "sr_RS"},
                                       {"C", "en_US"},
                                       {"POSIX", "en_US"},
                                       {"tl-ph-generic", "tl_PH"},
                                       {"", ""},
                                       {"_", ""},
                                       {"en_", "en"}})
        QCOMPARE(QString::fromStdString(speechRecognize::speechLanguage(locale).name()), QString(name));
}

void TestVosk::models_areFound_byNameAndOrder()
{
    for (const char* name :
         {"vosk-model-en-us-0.22", "vosk-model-small-en-us-0.9", "vosk-model-small-en-us-0.16",
          "vosk-model-small-cn-0.22", "vosk-model-de-tuda-0.6-900k", "vosk-model-spk-0.4",
          "vosk-recasepunc-en-0.22", "vosk-model", "vosk-model-small-fr", "notes"})
        QVERIFY(QFile::link(wholeModel(), folder->filePath(name)));
    writeFile(folder->filePath("vosk-model-small-it-0.22"), "no folder");
    QStringList found;
    for (const SpeechModel& model : makeEngine(folder->path())->models())
        found += QString::fromStdString(model.language + ' ' + model.path).remove(folder->path() + '/');
    QCOMPARE(found, (QStringList{"en_US vosk-model-small-en-us-0.16", "en_US vosk-model-small-en-us-0.9",
                                 "zh vosk-model-small-cn-0.22", "en_US vosk-model-en-us-0.22",
                                 "de vosk-model-de-tuda-0.6-900k"}));
}

void TestVosk::choice_followsLanguages()
{
    for (const char* name : {"vosk-model-small-pt-1", "vosk-model-pt-br-1", "vosk-model-small-cn-1"})
        addModel(name);
    const char* const packaged = "packaged";
    for (const auto& [asked, system, answers] :
         {std::tuple("pt_BR", "de_DE", "vosk-model-pt-br-1"),
          {"pt_PT", "de_DE", "vosk-model-small-pt-1"}, // for another region
          {"pt", "de_DE", "vosk-model-small-pt-1"},
          {"cn", "de_DE", "vosk-model-small-cn-1"}, // the engine's own name
          {"zh_Hans_CN", "de_DE", "vosk-model-small-cn-1"},
          {"", "pt_BR.UTF-8", "vosk-model-pt-br-1"},
          {"ru_RU", "pt_BR", "vosk-model-pt-br-1"}, // the system's, for want of one
          {"en_GB", "pt_BR", packaged},
          {"", "C", packaged},
          {"ru_RU", "de_DE", ""}}) {
        const InCase in_case(asked, system);
        qputenv("LC_ALL", system);
        const auto service = makeService(makeEngine(folder->path()), {});
        const LogCapture log;
        Listener listener;
        service->recognizeFile(food(), asked, listener.handler());
        QVERIFY(listener.awaitEnd());
        const SpeechModel answering = service->answering();
        const QString path = QString::fromStdString(answering.path);
        if (answers == packaged)
            QCOMPARE(answering.recognizer, "pocketsphinx");
        else
            QCOMPARE(path.mid(path.lastIndexOf('/') + 1), QString(answers));
        const bool fails = *answers == '\0';
        QCOMPARE(listener.failed.load(), fails);
        QCOMPARE(log.count("no speech model for ru_RU nor for the system's de_DE"), fails ? 1 : 0);
        QCOMPARE(log.count(folder->path()), fails ? 1 : 0); // where it was looked for
    }
}

void TestVosk::text_isWritten_asItsLanguageIs_data()
{
    columns<QString, QByteArray, QString>("locale", "script", "text");
    // A gap keeps what was heard before: the words are looked at from time to time only.
    const QByteArray two = QString("=%1\n=%1\n=%1\n=%1\n.%1 %2\n=%3\n=%3\n=%3\n=%3\n.%3\n").toUtf8();
    const auto script = [&](const QString& a, const QString& b, const QString& c) {
        return QString(two).arg(a, b, c).toUtf8();
    };
    row("Russian", QString("ru"), script("привет", "мир", "как дела"), QString("привет мир как дела"));
    row("Chinese", QString("cn"), script("你 好", "世界", "我 用 open source 软件"),
        QString("你好世界我用open source软件"));
    row("Japanese", QString("ja"), script("こんにちは", "世界", "元気 です か"),
        QString("こんにちは世界元気ですか"));
    row("Arabic", QString("ar"), script("مرحبا", "بالعالم", "كيف حالك"), QString("مرحبا بالعالم كيف حالك"));
    row("blanks beside words", QString("ru"), script(" a  b ", "", " "), QString("a b"));
    row("nothing", QString("ru"), QByteArray(), QString());
    row("what is no JSON", QString("ru"), QByteArray(".\"\n.\\\n.\xff\xfe\n"), QString());
}

void TestVosk::text_isWritten_asItsLanguageIs()
{
    QFETCH(QString, locale);
    QFETCH(QByteArray, script);
    QFETCH(QString, text);
    addModel("vosk-model-small-" + locale + "-1", script);
    const auto service = makeService(makeEngine(folder->path()));
    Listener listener;
    service->recognizeFile(food(), locale.toStdString(), listener.handler());
    QVERIFY(listener.awaitEnd());
    QVERIFY(!listener.failed);
    if (qstrcmp(QTest::currentDataTag(), "what is no JSON") != 0)
        QCOMPARE(listener.text(), text);
}

void TestVosk::failure_endsTask()
{
    addModel("vosk-model-small-ru-1", "=one\n=one\n=one\n=one\n!\n");
    const auto service = makeService(makeEngine(folder->path()));
    for (int round = 0; round < 2; ++round) {
        Listener listener;
        service->recognizeFile(food(), "ru", listener.handler());
        QVERIFY(listener.awaitEnd());
        QVERIFY(listener.failed);
        QCOMPARE(listener.text(), QString("one"));
    }
}

void TestVosk::modelThatCannotBeLoaded_isPassedOver()
{
    addModel("vosk-model-small-ru-2");
    addModel("vosk-model-small-ru-1");
    QVERIFY(QFile::remove(folder->filePath("vosk-model-small-ru-2/script"))); // the stand-in refuses it
    const auto service = makeService(makeEngine(folder->path()));
    const LogCapture log;
    for (int round = 0; round < 2; ++round) {
        Listener listener;
        service->recognizeFile(food(), "ru", listener.handler());
        QVERIFY(listener.awaitEnd());
        QCOMPARE(listener.text(), QString("hello"));
    }
    QCOMPARE(service->answering().path, folder->filePath("vosk-model-small-ru-1").toStdString());
    QCOMPARE(log.count("cannot load the speech model in " + folder->filePath("vosk-model-small-ru-2")), 1);
}

void TestVosk::brokenModel_isNamed_andPassedOver_data()
{
    columns<QString, QByteArray, QByteArray>("file", "from", "to");
    for (const char* file : {"am/final.mdl", "conf/mfcc.conf", "conf/model.conf", "graph/HCLG.fst",
                             "graph/phones/word_boundary.int"}) {
        for (const char* way : {"missing", "empty"})
            QTest::addRow("%s %s", file, way) << QString(file) << QByteArray() << QByteArray(way);
    }
    row("a phone less", QString("graph/phones/word_boundary.int"), QByteArray("160 end\n"), QByteArray());
    row("an unknown place", QString("graph/phones/word_boundary.int"), QByteArray("160 end"),
        QByteArray("160 dne"));
    row("another dimension", QString("conf/mfcc.conf"), QByteArray("ceps=40"), QByteArray("ceps=13"));
    row("no dimension", QString("conf/mfcc.conf"), QByteArray("--num-ceps=40\n"), QByteArray());
    row("another file", QString("am/final.mdl"), QByteArray("<TransitionModel>"),
        QByteArray("<TransitionMoodel>"));
    row("a voice print", QString("am/final.mdl"), QByteArray("input-node name=input"),
        QByteArray("input-node name=ivector dim=30 input-node name=input"));
}

void TestVosk::brokenModel_isNamed_andPassedOver()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, from);
    QFETCH(QByteArray, to);
    addModel("vosk-model-small-ru-1");
    const auto engine = makeEngine(folder->path());
    QCOMPARE(engine->models().size(), 1U);
    const QString path = folder->filePath("vosk-model-small-ru-1/" + file);
    QByteArray content = contentOf(path);
    QVERIFY(content.contains(from));
    if (to == "missing")
        QVERIFY(QFile::remove(path));
    else
        writeFile(path, from.isEmpty() ? QByteArray() : content.replace(from, to));

    const LogCapture log;
    const auto service = makeService(makeEngine(folder->path()));
    for (int round = 0; round < 2; ++round) {
        Listener listener;
        service->recognizeFile(food(), "ru", listener.handler()); // the stand-in would end the process
        QVERIFY(listener.awaitEnd());
        QVERIFY(listener.failed);
    }
    QCOMPARE(log.count("vosk-model-small-ru-1 is passed over"), 1);
}

void TestVosk::library_mustBeWhole()
{
    addModel("vosk-model-small-ru-1");
    const LogCapture log;
    for (const QString& library :
         {QString(STANDIN_VOSK_PART), QString("/no/other/libvosk.so"), wholeModel()}) {
        const InCase in_case(library);
        const auto engine = makeEngine(folder->path(), library.toStdString());
        QVERIFY(engine->models().empty());
        QVERIFY(engine->load({"Vosk", "ru", folder->filePath("vosk-model-small-ru-1").toStdString()}) ==
                nullptr);
        QVERIFY(engine->models().empty());
        QCOMPARE(log.count(QString("no library of it: /no/libvosk.so, ") + library), 1);
    }
    QCOMPARE(log.count(STANDIN_VOSK_PART " is no library of Vosk"), 1);
}

QTEST_GUILESS_MAIN(TestVosk)
#include "test_vosk.moc"
