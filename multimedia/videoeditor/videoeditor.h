#pragma once

#include "multimedia/multimedia_global.h"
#include "multimedia/videocapture/videoinformation.h"
#include "quillon/editfilefilter.h"

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtGui/QImage>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

class QQmlEngine;
namespace multimedia {
class ProcessEnd;
}
class VideoClipThread;
class VideoImageContext;
class VideoPreviewThread;

/// Video editing for QML and the host: the strip of thumbnails with the facts of a file, and clips.
///
/// The one object belongs to the thread that first asked for it, the main thread; everything runs there
/// unless it says otherwise. Files may be named by paths or "file:" URLs.
///
/// | from | event            | to                         | signal       |
/// |------|------------------|----------------------------|--------------|
/// | any  | `preview` begins | `VideoEditor_State_Preview` | stateChanged |
/// | any  | sampling ends    | `VideoEditor_State_Idle`    | none         |
///
/// Clips run whatever the state is, any number side by side.
class MULTIMEDIA_EXPORT VideoEditor : public QObject
{
    Q_OBJECT

public:
    enum VideoEditorState : int {
        VideoEditor_State_Idle = 0,
        VideoEditor_State_Preview = 1,
        VideoEditor_State_Clipper = 2, ///< never entered
    };
    Q_ENUM(VideoEditorState)

    enum VideoInfo : int {
        VideoInfo_Valid = 0,
        VideoInfo_HasVideo = 1,
        VideoInfo_Duration = 2, ///< milliseconds, low 32 bits
        VideoInfo_StreamCount = 3,
        VideoInfo_VideoWidth = 4,
        VideoInfo_VideoHeight = 5,
        VideoInfo_VideoFormat = 6, ///< not answered
        VideoInfo_VideoFps = 7,
        VideoInfo_VideoBiteRate = 8, ///< not answered
        VideoInfo_VideoRotate = 9,
        VideoInfo_VideoStreamCount = 10, ///< not answered
        VideoInfo_VideoCodecId = 11,
        VideoInfo_HasAudio = 12,
        VideoInfo_AudioSampleRate = 13,
        VideoInfo_AudioChannels = 14,
        VideoInfo_AudioChannelLayout = 15,
        VideoInfo_AudioSampleSize = 16, ///< not answered
        VideoInfo_AudioFormat = 17,     ///< not answered
        VideoInfo_AudioBitrate = 18,
        VideoInfo_AudioStreamCount = 19, ///< not answered
        VideoInfo_AudioCodecId = 20,
    };
    Q_ENUM(VideoInfo)

    static VideoEditor* instance();
    ~VideoEditor() override;

    /// Gives QML the images of the strip, see `VideoImageContext`.
    void bindQmlEngine(QQmlEngine* engine);

    /// Box that the frames of a strip are scaled for; (-1, -1) until it is set. Any thread.
    QSize getSize() const;
    /// A copy of the facts of the file under preview, without its rotation. Any thread.
    VideoInformation getVideoInformation() const;
    /// Changes the facts of the file under preview; called by its preview. Any thread.
    void changeVideoInformation(const std::function<void(VideoFacts&)>& change);
    /// Told by a preview when it has ended. Any thread.
    void setIdle() { m_state = VideoEditor_State_Idle; }

    /// Stores a sampled frame and tells QML; `index` is its running number, `time` is in milliseconds. Called
    /// by the preview on its thread.
    bool grabImageFrame(const QImage& image, long long index, double time, bool keyframe);
    void sendGrabFrame(const QImage& image, long long index, double time, bool keyframe);
    void sendClipProgress(int percent);

    /// Copies the span from "startTime" to "endTime" (milliseconds, in `editInfo`) of a video into the target
    /// file. Ends in one call of `clipCallback(5, code)` on this thread, two if the source has no path, with
    /// the code of `VideoClipThread`. A clip of the same file id that is under way is cancelled first.
    void clip(EditFileFilterPtr filter);
    /// Cancels the clip of a file. False if there is none.
    bool cancel(const QString& fileId);

    /// Refuses boxes with a side below 8.
    Q_INVOKABLE void setImageFrameSize(QSize size);
    /// How many frames a strip has: above 8, anything else gives 9.
    Q_INVOKABLE void setTotalGrabImageCount(int frameTotal = 9);
    /// A fact of the file under preview; -1 for one that is not answered.
    Q_INVOKABLE int getVideoInformation(VideoEditor::VideoInfo info) const;
    Q_INVOKABLE VideoEditor::VideoEditorState state() const { return m_state; }
    /// Opens a video, fills in its facts, and starts to sample its strip: frames arrive by `grabFrameID`, in
    /// order. A preview under way is ended first, which takes at most one sample.
    ///
    /// @return false for a missing file, which changes nothing, for one that cannot be sampled, and for a
    ///         preview that a receiver of `stateChanged` has ended before it began
    Q_INVOKABLE bool preview(QString file);
    /// Ends the preview, and forgets its frames.
    Q_INVOKABLE void clearPreview();
    /// Size of a video as it is shown: (720, 720) for no name, (-1, -1) if it cannot be opened.
    Q_INVOKABLE QSize videoSize(QString fileName);

    /// How many frames a strip has, see `setTotalGrabImageCount`.
    std::atomic<int> m_totalGrabCount{30};

public Q_SLOTS:
    void onClipFinish(EditFileFilterPtr editFilePtr, int code);

Q_SIGNALS:
    void stateChanged(VideoEditor::VideoEditorState newState);
    /// Not emitted by the library.
    void grabFrame(QImage image, qlonglong pts, bool keyframe);
    /// A frame of the strip is there.
    ///
    /// @param pts   its running number, which is its image id
    /// @param time  milliseconds
    void grabFrameID(qlonglong pts, qlonglong time);
    /// Not emitted by the library.
    void grabFrameFile(QString image, qlonglong pts, bool keyframe);
    void clipProgress(int percent);

private:
    VideoEditor();

    QHash<QString, QSharedPointer<VideoClipThread>> m_clipThreads;
    QSharedPointer<VideoImageContext> m_imageContext;
    std::atomic<VideoEditorState> m_state{VideoEditor_State_Idle};
    /// Guards `m_videoInfo` and `m_frameSize`.
    mutable std::mutex m_mutex;
    VideoInformation m_videoInfo;
    QSize m_frameSize{-1, -1};
    QString m_previewFile;
    /// Ends before the members above, which it writes to, are gone.
    QSharedPointer<VideoPreviewThread> m_previewThread;
    std::unique_ptr<multimedia::ProcessEnd> m_processEnd;
};
