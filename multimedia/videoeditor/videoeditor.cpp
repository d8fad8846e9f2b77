#include "multimedia/videoeditor/videoeditor.h"

#include "multimedia/base/processend.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoclipthread.h"
#include "multimedia/videoeditor/videoimagecontext.h"
#include "multimedia/videopreviewthread/videopreviewthread.h"
#include "quillon/util.h"

#include <QtCore/QFile>
#include <QtQml/QQmlEngine>

namespace {
/// The stage that `clipCallback` is told.
constexpr int kClipStage = 5;
constexpr int kMinFrameSide = 8;
constexpr int kMinGrabCount = 9;
constexpr QSize kUnnamedSize(720, 720);
constexpr int kNoAnswer = -1;

void report(const EditFileFilterPtr& filter, int code)
{
    if (filter && filter->clipCallback)
        filter->clipCallback(kClipStage, code);
}

QString fileId(const EditFileFilterPtr& filter)
{
    return filter && filter->file ? filter->file->fileId() : QString();
}
} // namespace

VideoEditor* VideoEditor::instance()
{
    static VideoEditor editor;
    return &editor;
}

VideoEditor::VideoEditor()
    : m_imageContext(QSharedPointer<VideoImageContext>::create())
{
    qRegisterMetaType<VideoEditorState>("VideoEditor::VideoEditorState");
    QQmlEngine::setObjectOwnership(this, QQmlEngine::CppOwnership);
    m_processEnd = std::make_unique<multimedia::ProcessEnd>([this] {
        m_previewThread.reset();
        m_clipThreads.clear();
    });
}

VideoEditor::~VideoEditor() = default;

void VideoEditor::bindQmlEngine(QQmlEngine* engine)
{
    m_imageContext->bindQmlEngine(engine);
}

QSize VideoEditor::getSize() const
{
    std::lock_guard lock(m_mutex);
    return m_frameSize;
}

VideoInformation VideoEditor::getVideoInformation() const
{
    std::lock_guard lock(m_mutex);
    return m_videoInfo;
}

void VideoEditor::changeVideoInformation(const std::function<void(VideoFacts&)>& change)
{
    std::lock_guard lock(m_mutex);
    change(m_videoInfo.facts);
}

bool VideoEditor::grabImageFrame(const QImage& image, long long index, double time, bool keyframe)
{
    const auto time_ms = qlonglong(time);
    const qlonglong id = m_imageContext->setImage(image.copy(), index, time_ms, keyframe);
    Q_EMIT grabFrameID(id, time_ms);
    return true;
}

void VideoEditor::sendGrabFrame(const QImage& image, long long index, double time, bool keyframe)
{
    grabImageFrame(image, index, time, keyframe);
}

void VideoEditor::sendClipProgress(int percent)
{
    Q_EMIT clipProgress(percent);
}

void VideoEditor::clip(EditFileFilterPtr filter)
{
    if (!filter)
        return;
    if (!filter->file || Util::toLocalFile(filter->file->filePath()).isEmpty())
        report(filter, VideoClipThread::kFailed);
    m_clipThreads.remove(fileId(filter)); // ends a former clip, before its target may be begun anew
    const auto thread = QSharedPointer<VideoClipThread>::create();
    connect(thread.get(), &VideoClipThread::clipFinish, this, &VideoEditor::onClipFinish);
    m_clipThreads[fileId(filter)] = thread; // a refusal is told at once, and may be answered by a new clip
    thread->startClip(filter, false);
}

void VideoEditor::onClipFinish(EditFileFilterPtr editFilePtr, int code)
{
    const QString id = fileId(editFilePtr);
    report(editFilePtr, code);
    // The report may be that of a former clip of the same id, while the one that is listed goes on.
    const auto thread = m_clipThreads.value(id);
    if (thread && thread->hasEnded())
        m_clipThreads.remove(id);
}

bool VideoEditor::cancel(const QString& fileId)
{
    const auto thread = m_clipThreads.value(fileId);
    if (!thread)
        return false;
    thread->cancelClip();
    return true;
}

void VideoEditor::setImageFrameSize(QSize size)
{
    if (size.width() < kMinFrameSide || size.height() < kMinFrameSide)
        return;
    std::lock_guard lock(m_mutex);
    m_frameSize = size;
}

void VideoEditor::setTotalGrabImageCount(int frameTotal)
{
    m_totalGrabCount = qMax(frameTotal, kMinGrabCount);
}

int VideoEditor::getVideoInformation(VideoInfo info) const
{
    std::lock_guard lock(m_mutex);
    const VideoFacts& facts = m_videoInfo.facts;
    switch (info) {
    case VideoInfo_Valid:
        return facts.valid;
    case VideoInfo_HasVideo:
        return facts.hasVideo;
    case VideoInfo_Duration:
        return int(facts.duration);
    case VideoInfo_StreamCount:
        return facts.streamCount;
    case VideoInfo_VideoWidth:
        return facts.videoWidth;
    case VideoInfo_VideoHeight:
        return facts.videoHeight;
    case VideoInfo_VideoFps:
        return facts.videoFps;
    case VideoInfo_VideoRotate:
        return facts.videoRotate;
    case VideoInfo_VideoCodecId:
        return facts.videoCodeID;
    case VideoInfo_HasAudio:
        return facts.hasAudio;
    case VideoInfo_AudioSampleRate:
        return facts.audioSampleRate;
    case VideoInfo_AudioChannels:
        return facts.audioChannels;
    case VideoInfo_AudioChannelLayout:
        return facts.audioCannelLayout;
    case VideoInfo_AudioBitrate:
        return facts.audioBitRate;
    case VideoInfo_AudioCodecId:
        return facts.audioCodecID;
    default:
        return kNoAnswer;
    }
}

bool VideoEditor::preview(QString file)
{
    m_previewFile = Util::toLocalFile(file);
    if (!QFile::exists(m_previewFile))
        return false;
    m_previewThread.reset(); // ends it
    m_previewThread = QSharedPointer<VideoPreviewThread>::create();
    if (!m_previewThread->load(m_previewFile))
        return false;
    m_imageContext->clear();
    m_state = VideoEditor_State_Preview;
    const auto thread = m_previewThread;
    Q_EMIT stateChanged(VideoEditor_State_Preview);
    if (thread != m_previewThread)
        return false; // whoever was told has cleared it, or begun another
    thread->start(QThread::InheritPriority);
    return true;
}

void VideoEditor::clearPreview()
{
    m_previewThread.reset(); // ends it
    setIdle();               // it may not have begun
    m_imageContext->clear();
}

QSize VideoEditor::videoSize(QString fileName)
{
    return fileName.isEmpty() ? kUnnamedSize
                              : VideoCapture::instance()->videoSourceSize(Util::toLocalFile(fileName));
}
