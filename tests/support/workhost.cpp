// workhost FOLDER PICTURE END DELAY_ms WORK...: an application that begins works and ends in their midst.
//
// FOLDER holds "film.mp4" and "moving.gif", PICTURE shows a face; results go into the folder for temporary
// files. A WORK is a name in the table below. END is how the application goes, so long after it has begun the
// last of them:
//   return    it leaves its event loop and main
//   noloop    it never has an event loop
//   exit      it calls exit() in the midst of its event loop
//   release   it says goodbye to the library in the way of a tidy host, and returns
//   after     it does so before it begins, has the device lists deleted, and returns

#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/devicemgr/devicemgr.h"
#include "multimedia/gifhandler/gifhandler.h"
#include "multimedia/imageedit/imageeditprovider.h"
#include "multimedia/multimediaprovider.h"
#include "multimedia/screenrecord/screenrecord.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "multimedia/videoprovider/videoprovider.h"

#include <QtCore/QDir>
#include <QtCore/QMap>
#include <QtCore/QTimer>
#include <QtGui/QGuiApplication>

#include <functional>
#include <memory>
#include <thread>

namespace {

QString folder;
QString picture;
// They outlive the application; the last one is never destroyed.
std::unique_ptr<GifHandler> gif_handler;
multimedia::ScreenRecord* recorder = nullptr;

QString source(const char* name)
{
    return folder + QLatin1Char('/') + QLatin1String(name);
}

QString result(const char* name)
{
    return QDir::temp().filePath(QLatin1String(name));
}

EditFileFilterPtr request(BaseFile& file, const char* target)
{
    auto filter = EditFileFilterPtr::create();
    filter->file = &file;
    filter->savePath = result(target);
    return filter;
}

void recordVoice(int changer)
{
    RecordEngine::instance()->setStoragePath(QDir::tempPath());
    RecordEngine::instance()->startRecord(changer);
}

const QMap<QString, std::function<void()>> kWorks = {
    {"clip",
     [] {
         static BaseFile file("film", source("film.mp4"));
         const EditFileFilterPtr filter = request(file, "clip.mp4");
         filter->editInfo = {{"startTime", 1000}, {"endTime", 11'000}};
         VideoEditor::instance()->clip(filter);
     }},
    {"compress",
     [] {
         if (!gif_handler)
             gif_handler = std::make_unique<GifHandler>();
         gif_handler->compressGif("id", source("moving.gif"), result("small.gif"), kGifCompressHalf, {});
     }},
    {"convert",
     [] { VideoProvider::instance()->addConvertVideo(source("film.mp4"), ConvertFileFilterPtr::create()); }},
    {"devices", [] { DeviceManager::DeviceMgr::instance(); }},
    {"edit",
     [] {
         static BaseFile file("picture", source("picture.jpg"));
         const EditFileFilterPtr filter = request(file, "edited.png");
         filter->editInfo = {{"mirrored", true}, {"x2", 1.0}, {"y2", 1.0}};
         ImageEdit::ImageEditProvider::instance()->doEdit(filter);
     }},
    {"faces", [] { ImageEdit::ImageEditProvider::instance()->editImage(picture); }},
    {"gif", [] { VideoProvider::instance()->mp4ToGif(source("film.mp4"), "id"); }},
    {"mask", [] { ImageEdit::ImageEditProvider::instance()->faceMaskDetect(picture); }},
    {"play",
     [] {
         AudioPlayer* player = AudioPlayer::instance();
         player->regCallBack([](void*) { AudioPlayer::instance()->audioEvent(); }, player);
         player->breakPlay(source("film.mp4"), 0);
         QMetaObject::invokeMethod(player, "play", Qt::QueuedConnection, Q_ARG(QString, source("film.mp4")));
     }},
    {"recognize", [] { RecordEngine::instance()->recognizeFile("id", source("film.mp4"), "en_US"); }},
    {"screen",
     [] {
         if (!recorder)
             recorder = new multimedia::ScreenRecord;
         recorder->setScreen(QGuiApplication::primaryScreen());
         recorder->setRect({0, 0, 320, 180});
         recorder->start();
     }},
    {"strip", [] { VideoEditor::instance()->preview(source("film.mp4")); }},
    {"voice", [] { recordVoice(0); }},
    {"changed-voice", [] { recordVoice(1); }},
};

void begin(const QStringList& works)
{
    for (const QString& work : works)
        kWorks.value(work)();
}

void sayGoodbye()
{
    AudioPlayer::instance()->release();
    MultimediaProvider::unregist();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication application(argc, argv);
    QStringList works = QCoreApplication::arguments().mid(1);
    folder = works.takeFirst();
    picture = works.takeFirst();
    const QString end = works.takeFirst();
    const int delay_ms = works.takeFirst().toInt();

    if (end == "after") {
        DeviceManager::DeviceMgr::instance();
        MultimediaProvider::unregist();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    begin(works);
    if (end == "noloop") {
        std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
        return 0;
    }
    QTimer::singleShot(delay_ms, [end] {
        if (end == "exit")
            std::exit(0);
        if (end == "release")
            sayGoodbye();
        QCoreApplication::quit();
    });
    return QGuiApplication::exec();
}
