#pragma once

#include "multimedia/base/mediasource.h"
#include "quillon/editfilefilter.h"

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QThread>

#include <atomic>
#include <memory>
#include <vector>

namespace multimedia {
class ResultFile;
}
class PictureOrder;

/// Copies a span of a video into another file, without decoding: from the key frame at or before the start to
/// the first packet beyond the end. Each stream's times begin at 0.
///
/// Video, sound and subtitles are copied, with their rotation; what else is in the file is not. The target's
/// container follows from its suffix. One object serves one clip, which ends in one `clipFinish`, emitted on
/// the thread that clips, or on the caller's for a refused request:
///
/// | code         | meaning                   | target file                      |
/// |--------------|---------------------------|----------------------------------|
/// | `kDone`      | the span was written      | complete                         |
/// | `kCancelled` | cancelled                 | as before                        |
/// | `kFailed`    | failed or refused         | as before                        |
///
/// Damaged packets are left out. A source that is cut while it is read fails the clip.
///
/// The destructor cancels and waits, for one packet at most.
class VideoClipThread : public QThread
{
    Q_OBJECT

public:
    enum Code { kDone = 0, kCancelled = 1, kFailed = 2 };

    VideoClipThread();
    ~VideoClipThread() override;

    /// Refuses a missing source, a negative start, an end before the start, and an empty target.
    ///
    /// @param sync  clips on the calling thread; otherwise the call returns at once
    /// @return false if the request was refused
    bool startClip(EditFileFilterPtr filter, bool sync);
    /// Clips from path to path; times are in milliseconds. Always true; what cannot be done is reported by
    /// `clipFinish`.
    bool startClip(const QString& src, const QString& dst, long long start, long long end, bool sync);
    /// Takes effect at the next packet, or at the next read while the source is opened and sought. Any
    /// thread.
    void cancelClip();

    /// True as soon as `clipFinish` is on its way. Any thread.
    bool hasEnded() const { return m_ended; }

    /// The work, for the request that was started.
    void clip();
    /// Whether packets of a stream of FFmpeg's media type `type` are copied.
    static bool isSupportStreamType(int type);
    /// Id of the requested file; empty for a clip by paths.
    QString getFileId() const;
    /// Ends the clip as failed.
    void clipError();
    /// Closes both files. What was written takes the target's place, or goes unless it is to be kept.
    void resetCtx(bool keepFile);

Q_SIGNALS:
    void clipFinish(EditFileFilterPtr editFilePtr, int code);

protected:
    void run() override;

private:
    /// In the source's time base.
    struct StreamTimes
    {
        int64_t first_dts;
        int64_t step; ///< duration of the first packet, 1 or more
        int64_t last_dts;
    };

    /// Polled by FFmpeg's reads.
    static int isCancelled(void* clip);

    void begin(bool sync);
    bool openSource();
    bool openTarget();
    bool beginFile();
    bool addStream(AVStream& source);
    bool seekToStart();
    bool seek(int64_t target_us);
    bool findKeyFrame();
    bool copyPackets();
    AVStream& sourceStream(const AVPacket& packet) const
    {
        return *m_source.format()->streams[packet.stream_index];
    }
    int targetIndex(const AVPacket& packet) const;
    bool isBeforeStart(const AVPacket& packet) const;
    bool isBeyondEnd(const AVPacket& packet) const;
    int64_t completeTimes(AVPacket& packet);
    void writePacket(AVPacket& packet);
    bool finishTarget();
    void end(Code code);

    qint64 m_startTime = 0;
    qint64 m_endTime = 0;
    QString m_srcPath;
    QString m_dstPath;
    /// From the request to the end or `cancelClip`.
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_ended{false};
    EditFileFilterPtr m_filter;
    multimedia::MediaSource m_source; ///< its selected stream is the video
    std::unique_ptr<PictureOrder> m_order;
    std::unique_ptr<multimedia::ResultFile> m_result;
    multimedia::OutputPtr m_outputContext;
    /// By index in the source; -1 for a stream that is not copied.
    std::vector<int> m_targetIndex;
    /// By index in the source.
    QMap<int, StreamTimes> m_times;
    /// Decoding time of the key frame to begin at, where the seek does not end at one.
    int64_t m_firstTime = AV_NOPTS_VALUE;
};
