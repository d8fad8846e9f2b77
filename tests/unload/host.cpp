#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/facedetect/facedetect.h"
#include "multimedia/gifhandler/gifhandler.h"
#include "multimedia/imageedit/imagehsl.h"
#include "multimedia/multimediaprovider.h"
#include "multimedia/screenrecord/screenrecord.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoeditor.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtQml/QQmlComponent>
#include <QtQml/QQmlEngine>

namespace {
/// The singletons behind the provider, and the types of the module, by way of QML.
bool useFromQml()
{
    QQmlEngine engine;
    MultimediaProvider::registType(engine);
    QQmlComponent component(&engine);
    component.setData(
        "import QtQml 2.15; import Quillon 1.0; QtObject {"
        "    property int screens: MultimediaProvider.deviceMgr.screenModel.rowCount();"
        "    property bool all: DeviceTypeDefine.Screen === 4 && MultimediaProvider.recordEngine &&"
        "                       MultimediaProvider.imageEditHandler && VideoEditor.state() === 0 }",
        {});
    const QScopedPointer<QObject> object(component.create());
    if (!object)
        qWarning("%s", qPrintable(component.errorString()));
    return object && object->property("all").toBool() && object->property("screens").toInt() == 1;
}

bool usePictures()
{
    QImage picture(320, 240, QImage::Format_RGB32);
    picture.fill(0x336699);
    modifyImageHslInThread(picture, 0.5, 0, 0, true); // the global thread pool
    return picture.pixel(7, 7) != 0xff336699 && multimedia::faceMask(picture).size() == picture.size();
}

/// The player and the preview have threads of their own; the rest runs on this one.
bool useMedia(const QString& video, const QString& gif, const QString& result)
{
    if (!VideoEditor::instance()->preview(video))
        return false;
    VideoEditor::instance()->clearPreview();
    AudioPlayer::instance()->release();
    const multimedia::ScreenRecord recorder;
    GifHandler handler;
    return !VideoCapture::instance()->videoSourceSize(video).isEmpty() &&
           handler.compressGifSync({}, gif, result, kGifCompressHalf, {}) && QFile::exists(result);
}
} // namespace

/// What an application's plugin would do with the library, from its first call to its last.
extern "C" Q_DECL_EXPORT bool useLibrary(const char* video, const char* gif, const char* result)
{
    const bool right = useFromQml() && usePictures() &&
                       useMedia(QString::fromUtf8(video), QString::fromUtf8(gif), QString::fromUtf8(result));
    MultimediaProvider::unregist();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return right;
}
