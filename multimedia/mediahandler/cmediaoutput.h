#pragma once

#include "multimedia/base/ffmpegptr.h"

#include <QtCore/QString>

/// A muxer that writes one file. The path's extension chooses the container.
///
/// The order of calls is `setOutput`, `addStream` and `setParam` for each stream, `open`, `write`, `close`.
/// Time stamps are passed on as they come: a container that keeps them needs packets in the stream's time
/// base. Results are 0 or FFmpeg's negative codes; failures are logged. One thread at a time.
class CMediaOutput
{
public:
    int setOutput(const QString& path);
    /// Adds a stream and tells its index. The first call makes the container.
    int addStream(AVCodecID id, int& index);
    int setParam(unsigned int index, const AVCodecParameters* parameters);
    int setParam(unsigned int index, const AVCodecContext* encoder);

    void setAudioIndex(unsigned int index) { audio_index = index; }
    void setVideoIndex(unsigned int index) { video_index = index; }
    unsigned int audioIndex() const { return audio_index; }
    unsigned int videoIndex() const { return video_index; }
    /// 0, or -1 when there is no such stream.
    int getTimeBase(int index, AVRational& timeBase) const;
    /// Null before the first `addStream` and after `close`.
    AVFormatContext* getOutputContext() const { return context.get(); }

    /// Makes the file, for its owner only, or empties it, and writes the header.
    int open();
    /// Takes the content of `packet`.
    int write(AVPacket* packet);
    /// Writes the trailer and closes the file. Without a successful `open` it does nothing; when the last
    /// bytes cannot be written it logs and keeps the container.
    void close();

private:
    static constexpr unsigned int kNoStream = -1;

    AVStream* stream(unsigned int index) const;

    QString path;
    multimedia::OutputPtr context;
    unsigned int audio_index = kNoStream;
    unsigned int video_index = kNoStream;
    bool opened = false;
};
