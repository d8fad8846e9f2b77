#pragma once

#include "multimedia/base/pixelscaler.h"

#include <QtCore/QList>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QThread>
#include <QtGui/QImage>

#include <atomic>
#include <memory>
#include <optional>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
class FfmpegHandler;

/// Samples the strip of a video: evenly spaced pictures, each the first one that the decoder gives after a
/// backward seek, as a rule the key frame at or before its time.
///
/// One object serves one file. `load` opens it and writes its facts to the `VideoEditor`; `start` samples it
/// on the thread, as many pictures as the editor says, and hands them to the editor. Sampling ends by itself,
/// at `cancel`, or at the first picture that cannot be had; the editor's state is then idle. The cost grows
/// with the number of pictures, not with the length of the video.
///
/// `load` and `close` belong to one thread and to the time before `start`. The destructor cancels and waits,
/// for one picture at most.
class VideoPreviewThread : public QThread
{
    Q_OBJECT

public:
    VideoPreviewThread();
    ~VideoPreviewThread() override;

    /// Opens a local file. False, with a line in "quillon.multimedia", if it cannot be sampled: no video, no
    /// decoder for it or for its sound, no known duration (no line).
    bool load(const QString& file);
    bool close();
    /// Null unless a file is open.
    AVCodecContext* getAVCodecContext() const;
    /// Writes the rotation of the open file to the editor's facts; leaves them alone if there is none.
    void readMetaInfo();
    /// Samples the open file on the calling thread; without one it ends at once.
    void fastPreview();
    /// Times of `count` samples in seconds, the first at 0, the last at `duration`.
    QList<double> getVideoCaptureFrameIndex(double duration, int count) const;
    /// Picture at or before a time. Null at the end of the file. It belongs to this object until the next
    /// call.
    AVFrame* getVideoFrameByTime(double seconds);
    /// Ends sampling, or loading, at the next read. Any thread.
    void cancel();

protected:
    void run() override;

private:
    /// Polled by FFmpeg's reads.
    static int isCancelled(void* thread);

    bool openFile(const QString& file);
    void countStreams();
    bool openVideo();
    bool openAudio();
    bool makeConverter();
    std::optional<int> rotation() const;
    bool decode(const AVPacket& packet);
    bool receivePicture();
    bool convertPicture();
    QImage thumbnail(std::optional<int> turn) const;
    double pictureTime() const;

    QString m_previewPath;
    qint64 m_grabIndex = 0;
    /// Of the converted pictures.
    QSize m_pictureSize;
    /// What the scaler was made for.
    multimedia::PictureFormat m_converted;
    /// Work goes on: from `load` to `cancel` or the end.
    std::atomic<bool> m_running{false};
    const std::unique_ptr<FfmpegHandler> m_handler;
};
