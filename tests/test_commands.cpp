#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/devicemgr/devicemgr.h"
#include "multimedia/gifhandler/gifhandler.h"
#include "multimedia/imageedit/imageeditprovider.h"
#include "multimedia/screenrecord/screenrecord.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "multimedia/videoprovider/videoprovider.h"
#include "tests/support/files.h"
#include "tests/support/fulldisk.h"
#include "tests/support/process.h"
#include "tests/support/row.h"
#include "tests/support/soundserver.h"

#include <QtTest/QtTest>

extern "C" {
#include <libavutil/log.h>
}

#include <functional>
#include <malloc.h>
#include <random>
#include <shared_mutex>
#include <thread>

using ImageEdit::ImageEditProvider;
using multimedia::ScreenRecord;

namespace {

constexpr int kThreads = 4;
constexpr int kPatience_ms = 120'000;
constexpr qint64 kMostGrowth_bytes = 64 << 20;
constexpr int kOpening_ms = 500; ///< within which a device opens that a command has asked for

/// Held for a command, and alone while the sound server goes.
std::shared_mutex sound_gate;

/// What a command draws its arguments from.
struct Dice
{
    int upTo(int end) { return int(engine() % unsigned(end)); }
    bool coin() { return upTo(2) != 0; }
    QString file()
    {
        static const QStringList names{"short.mp4",   "short.gif",   "film.mp4",
                                       "picture.jpg", "missing.mp4", ""};
        return media(names[upTo(names.size())]);
    }
    QString id() { return QString::number(upTo(3)); }
    QString result(const char* suffix) { return QDir::temp().filePath(id() + QLatin1String(suffix)); }

    std::mt19937 engine;
};
using Command = std::function<void(Dice&)>;

/// One facade, its commands, and how it is brought to rest.
struct Facade
{
    std::vector<Command> commands;
    bool any_thread = false; ///< else all belong to the main thread
    std::function<void()> rest = [] {};
    std::function<bool()> rests = [] { return true; };
};

EditFileFilterPtr request(Dice& dice, const char* suffix, int& pending)
{
    static std::vector<std::unique_ptr<BaseFile>> files; // for as long as a request may want them
    if (files.empty()) {
        for (const char* id : {"0", "1", "2"})
            files.push_back(std::make_unique<BaseFile>(id, media(*id == '2' ? "picture.jpg" : "short.mp4")));
    }
    auto filter = EditFileFilterPtr::create();
    filter->file = files[size_t(dice.upTo(3))].get();
    filter->savePath = dice.result(suffix);
    filter->editInfo = {{"startTime", dice.upTo(300)},
                        {"endTime", dice.upTo(600)},
                        {"x2", 1.0},
                        {"y2", 1.0},
                        {"mirrored", dice.coin()}};
    ++pending;
    filter->clipCallback = [&pending](int, int) { --pending; };
    return filter;
}

Facade player()
{
    AudioPlayer* player = AudioPlayer::instance();
    player->regCallBack([](void*) { AudioPlayer::instance()->audioEvent(); }, player);
    const auto play = [player](const QString& path, qint64 from_ms) {
        player->breakPlay(path, 0);
        QMetaObject::invokeMethod(player, "play", Qt::QueuedConnection, Q_ARG(QString, path),
                                  Q_ARG(qlonglong, from_ms));
    };
    Facade facade;
    facade.any_thread = true;
    facade.commands = {
        [play](Dice& dice) { play(dice.file(), dice.coin() ? 0 : dice.upTo(12'000)); },
        [player](Dice& dice) { player->pause(dice.coin()); },
        [player](Dice& dice) { player->stop(dice.upTo(40) == 0); },
        [player](Dice& dice) { player->seekPos(dice.upTo(15'000)); },
        [player](Dice& dice) { player->setSpeed(0.4 + dice.upTo(30) / 10.0); },
        [player](Dice& dice) { player->breakPlay(dice.coin() ? dice.file() : QString(), dice.upTo(2) * 99); },
        [player](Dice&) { player->handleDeviceChanged(); },
        [player](Dice&) { player->closeAudioOutput(); },
        [player](Dice&) { player->audioEvent(); },
        [](Dice& dice) { AudioPlayer::duration(dice.file()); },
    };
    facade.rest = [player] {
        player->breakPlay({}, 0);
        QMetaObject::invokeMethod(
            player, [] {}, Qt::BlockingQueuedConnection);
    };
    return facade;
}

Facade screenRecorder()
{
    auto recorder = std::make_shared<ScreenRecord>();
    QObject::connect(recorder.get(), &ScreenRecord::fileChanged,
                     [](const QString& file) { QFile::remove(file); });
    Facade facade;
    facade.any_thread = true;
    facade.commands = {
        [recorder](Dice& dice) { recorder->setIsGif(dice.upTo(4) == 0); },
        [recorder](Dice& dice) { recorder->setIsMute(dice.coin()); },
        [recorder](Dice& dice) {
            recorder->setRect({dice.upTo(99), 0, 64 + dice.upTo(200), 64});
        },
        [recorder](Dice&) { recorder->start(); },
        [recorder](Dice&) { recorder->start(); },
        [recorder](Dice&) { recorder->pause(); },
        [recorder](Dice&) { recorder->stop(); },
        [recorder](Dice&) { recorder->getFile(); },
        [recorder](Dice&) { // the list of screens is the main thread's
            QMetaObject::invokeMethod(recorder.get(),
                                      [recorder] { recorder->setScreen(QGuiApplication::screens().last()); });
        },
    };
    facade.rest = [recorder] { recorder->stop(); };
    facade.rests = [recorder] { return recorder->getState() == ScreenRecord::Waiting; };
    return facade;
}

Facade recordEngine()
{
    RecordEngine* engine = RecordEngine::instance();
    engine->setStoragePath(QDir::tempPath());
    Facade facade;
    facade.commands = {
        [engine](Dice& dice) { engine->startRecord(dice.upTo(10)); },
        [engine](Dice& dice) { engine->stopRecord(dice.coin()); },
        [engine](Dice&) { engine->cancelRecord(); },
        [engine](Dice& dice) { engine->setSpectrumNum(dice.upTo(1300)); },
        [engine](Dice& dice) { engine->getSampleData(dice.upTo(100)); },
        [engine](Dice& dice) { engine->recognizeFile(dice.id(), dice.file()); },
        [engine](Dice& dice) { engine->recognizeBuffer(dice.id(), engine->convertToPCM(dice.file())); },
        [engine](Dice& dice) { engine->cancelRecognize(dice.id()); },
        [engine](Dice&) { engine->cancelAllRecognize(); },
        [engine](Dice&) { engine->releaseRecognizeMgr(); },
        [engine](Dice& dice) {
            if (dice.upTo(20) == 0)
                engine->hasVisibleAudioInputDev();
        },
    };
    facade.rest = [engine] {
        engine->cancelRecord();
        engine->releaseInstance();
    };
    return facade;
}

Facade gifHandler()
{
    auto handler = std::make_shared<GifHandler>();
    Facade facade;
    facade.any_thread = true;
    const auto queued = [handler](const Command& command) {
        return [handler, command](Dice& dice) {
            QMetaObject::invokeMethod(
                handler.get(), [&] { command(dice); }, Qt::BlockingQueuedConnection);
        };
    };
    facade.commands = {
        queued([handler](Dice& dice) {
            handler->compressGif(dice.id(), dice.file(), dice.result(".gif"), dice.upTo(2), {40, 30});
        }),
        queued([handler](Dice& dice) { handler->cancelCompressGif(dice.id()); }),
        queued([handler](Dice&) { handler->cancelAllCompressGifs(); }),
        [handler](Dice& dice) {
            handler->compressGifSync({}, media("short.gif"), dice.result(".sync.gif"), 1, {});
        },
        [handler](Dice& dice) {
            handler->gifTranscodeToMP4({}, media("short.gif"), dice.result(".sync.mp4"));
        },
        [handler](Dice&) { handler->cancelCompressGifSync({}); },
    };
    facade.rest = [handler] { handler->cancelAllCompressGifs(); };
    return facade;
}

Facade videoEditor()
{
    VideoEditor* editor = VideoEditor::instance();
    auto pending = std::make_shared<int>(0);
    Facade facade;
    facade.commands = {
        [editor](Dice& dice) { editor->preview(dice.file()); },
        [editor](Dice&) { editor->clearPreview(); },
        [editor](Dice& dice) {
            editor->setImageFrameSize({dice.upTo(200), dice.upTo(200)});
        },
        [editor](Dice& dice) { editor->setTotalGrabImageCount(dice.upTo(30)); },
        [editor](Dice& dice) { editor->videoSize(dice.file()); },
        [editor, pending](Dice& dice) { editor->clip(request(dice, ".clip.mp4", *pending)); },
        [editor](Dice& dice) { editor->cancel(dice.id()); },
        [](Dice& dice) {
            VideoCapture::instance()->syncDecodeCapture(dice.file(), dice.result(".capture.jpg"));
        },
    };
    facade.rest = [editor] { editor->clearPreview(); };
    facade.rests = [pending] { return *pending == 0; };
    return facade;
}

Facade imageEdit()
{
    ImageEditProvider* provider = ImageEditProvider::instance();
    auto pending = std::make_shared<int>(0);
    const auto picture = [](Dice& dice) {
        return dice.coin() ? dataFile(QStringLiteral("photos/cat.jpg")) : dice.file();
    };
    Facade facade;
    facade.commands = {
        [provider, picture](Dice& dice) { provider->editImage(picture(dice)); },
        [provider](Dice&) { provider->editReset(); },
        [provider, picture](Dice& dice) { provider->faceMaskDetect(picture(dice)); },
        [provider](Dice&) { provider->faceMaskDetect(provider->srcPath()); },
        [provider](Dice& dice) { provider->setRotation(dice.upTo(360)); },
        [provider, pending](Dice& dice) { provider->doEdit(request(dice, ".edit.png", *pending)); },
        [provider](Dice& dice) { provider->cancelEdit(dice.id()); },
        [provider](Dice& dice) { provider->readThumbBytes(dice.file()); },
    };
    facade.rest = [provider] {
        provider->editReset();
        QThreadPool::globalInstance()->waitForDone();
    };
    facade.rests = [pending] { return *pending == 0; };
    return facade;
}

Facade videoProvider()
{
    VideoProvider* provider = VideoProvider::instance();
    auto pending = std::make_shared<int>(0);
    const auto ended = [pending] { --*pending; };
    static QObject context;
    QObject::connect(provider, &VideoProvider::gifConvertComplete, &context, ended);
    QObject::connect(provider, &VideoProvider::mp4ConvertComplete, &context, ended);
    // Each reports once when it is added, and once when it is over.
    QObject::connect(provider, &VideoProvider::videoConvertComplete, &context, ended);
    const auto convert = [provider, pending](Dice&) {
        if (*pending > 20)
            return;
        *pending += 2;
        provider->addConvertVideo(media("short.mp4"), ConvertFileFilterPtr::create());
    };
    Facade facade;
    facade.commands = {
        convert,
        [provider](Dice&) { provider->cancelConvertVideo(); },
        [provider, pending](Dice& dice) {
            ++*pending;
            provider->mp4ToGif(media("short.mp4"), dice.id());
        },
        [provider, pending](Dice& dice) {
            ++*pending;
            provider->gifToMp4(media("short.gif"), dice.id());
        },
        [provider](Dice&) { provider->convertVideoToMp4(); },
        [provider](Dice& dice) {
            if (dice.upTo(10) == 0)
                provider->readVideoRotation(media("short.mp4"));
        },
    };
    facade.rests = [pending] { return *pending == 0; };
    return facade;
}

Facade devices()
{
    auto* manager = DeviceManager::DeviceMgr::instance();
    Facade facade;
    facade.commands = {
        [manager](Dice&) { manager->refreshModel(); },
        [manager](Dice& dice) { manager->screenModel()->setCurrentDevice(dice.id()); },
        [manager](Dice&) { manager->audioOutputModel()->defaultDevice(); },
        [manager](Dice&) { manager->notifyAudioDeviceChangedObserver(); },
    };
    return facade;
}

/// What goes away now and then: the sound server where MULTIMEDIA_SOUND_GOES is set, a screen where
/// TWO_SCREENS is, the space on the disk. On a thread of its own.
class Weather
{
public:
    explicit Weather(unsigned seed)
        : thread([this, seed] { blow(seed); })
    {}
    ~Weather()
    {
        ended = true;
        thread.join();
    }
    Weather(const Weather&) = delete;
    Weather& operator=(const Weather&) = delete;

    /// While it is calm everything is there.
    void setCalm(bool is_calm)
    {
        wanted_calm = is_calm;
        while (calm != is_calm)
            QThread::msleep(5);
    }

private:
    void blow(unsigned seed)
    {
        Dice dice{std::mt19937(seed)};
        SoundServer server;
        while (!ended) {
            calm = wanted_calm.load();
            if (!calm)
                blowOnce(dice, server);
            QThread::msleep(calm ? 5 : 200);
        }
    }
    static void blowOnce(Dice& dice, SoundServer& server)
    {
        constexpr int kAway_ms = 100;
        const int what = dice.upTo(3);
        static const bool sound_goes = qEnvironmentVariableIsSet("MULTIMEDIA_SOUND_GOES");
        if (what == 0 && !sound_goes)
            return;
        if (what == 0) {
            // Qt's plugin waits for ever for a stream whose server dies just while it is being opened.
            const std::unique_lock no_command(sound_gate);
            QThread::msleep(kOpening_ms);
            server.kill();
            QThread::msleep(kAway_ms);
            server.start();
        } else if (what == 1) {
            const FullDisk disk(20'000);
            QThread::msleep(kAway_ms);
        } else if (qEnvironmentVariableIsSet("TWO_SCREENS")) {
            QProcess::execute("xrandr", {"--output", "DUMMY1", "--off"});
            QThread::msleep(kAway_ms);
            QProcess::execute("xrandr", {"--output", "DUMMY1", "--mode", "1280x720", "--pos", "1920x0"});
        }
    }

    std::atomic<bool> ended = false;
    std::atomic<bool> wanted_calm = true;
    std::atomic<bool> calm = true;
    std::thread thread;
};

qint64 residentBytes()
{
    malloc_trim(0);
    return contentOf(QStringLiteral("/proc/self/statm")).split(' ').value(1).toLongLong() * 4096;
}

} // namespace

using MakeFacade = std::function<Facade()>;
Q_DECLARE_METATYPE(MakeFacade)

/// Random commands from several threads at once, in bad weather.
class TestCommands : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { weather.reset(); }
    void facade_isAsBefore_afterRandomCommands_data();
    void facade_isAsBefore_afterRandomCommands();

private:
    /// False when they do not come to an end.
    bool run(const Facade& facade);

    unsigned seed = 0;
    int count = 200; ///< of commands
    std::unique_ptr<Weather> weather;
};

void TestCommands::initTestCase()
{
    if (const int wanted = qEnvironmentVariableIntValue("MULTIMEDIA_COMMANDS"))
        count = wanted;
    bool is_seeded = false;
    seed = unsigned(qEnvironmentVariableIntValue("MULTIMEDIA_SEED", &is_seeded));
    if (!is_seeded)
        seed = std::random_device()();
    qInfo("seed %u", seed);
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& text) {
        if (type == QtFatalMsg)
            fprintf(stderr, "%s\n", qPrintable(text));
    });
    av_log_set_level(AV_LOG_QUIET);
    QThreadPool::globalInstance()->setExpiryTimeout(100);
    weather = std::make_unique<Weather>(seed);
}

void TestCommands::facade_isAsBefore_afterRandomCommands_data()
{
    columns<MakeFacade>("make");
    const auto add = [](const char* name, const MakeFacade& make) { row(name, make); };
    add("player", player);
    add("screen recorder", screenRecorder);
    add("record engine", recordEngine);
    add("GIF handler", gifHandler);
    add("video editor", videoEditor);
    add("image editor", imageEdit);
    add("conversions", videoProvider);
    add("devices", devices);
}

bool TestCommands::run(const Facade& facade)
{
    QEventLoop loop;
    std::atomic<int> running = kThreads;
    const auto work = [&](unsigned number) {
        Dice dice{std::mt19937(seed + number)};
        for (int i = 0; i < count / kThreads; ++i) {
            const Command& command = facade.commands[size_t(dice.upTo(int(facade.commands.size())))];
            std::shared_lock sound_stays(sound_gate);
            if (facade.any_thread)
                command(dice);
            else
                QMetaObject::invokeMethod(
                    this, [&] { command(dice); }, Qt::BlockingQueuedConnection);
            sound_stays.unlock();
            if (dice.upTo(3) == 0)
                QThread::msleep(unsigned(dice.upTo(8)));
        }
        if (--running == 0)
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit);
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads.emplace_back(work, i);
    QTimer::singleShot(count * kPatience_ms / 1000, &loop, &QEventLoop::quit);
    loop.exec();
    if (running > 0)
        qFatal("the commands do not end"); // the threads could not be joined
    for (std::thread& thread : threads)
        thread.join();
    facade.rest();
    return QTest::qWaitFor(facade.rests, kPatience_ms);
}

void TestCommands::facade_isAsBefore_afterRandomCommands()
{
    QFETCH(MakeFacade, make);
    const Facade facade = make();
    qint64 bytes = 0;
    int threads = 0;
    for (const bool measured : {false, true}) {
        weather->setCalm(false);
        const bool has_ended = run(facade);
        weather->setCalm(true);
        QVERIFY(has_ended);
        QTest::qWait(500);
        if (measured)
            break;
        bytes = residentBytes();
        threads = countOf("task");
    }
    constexpr int kMadeOnce = 8; // threads that a command may have been the first to want
    QTRY_VERIFY2(countOf("task") <= threads + kMadeOnce, qPrintable(QString::number(countOf("task"))));
    const qint64 grown = residentBytes() - bytes;
    qInfo("%lld MiB more, %d threads after %d", grown >> 20, countOf("task"), threads);
#ifndef __SANITIZE_ADDRESS__ // it keeps what was freed
    QVERIFY(grown < kMostGrowth_bytes);
#endif
}

QTEST_MAIN(TestCommands)
#include "test_commands.moc"
