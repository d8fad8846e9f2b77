#include "multimedia/screenrecord/recordingfile.h"

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/mediasource.h"
#include "multimedia/base/resultfile.h"

namespace multimedia {

namespace {

/// Bytes of the index a packet: its size, and its share of a run's position. In bad order each packet is a
/// run of its own.
constexpr int64_t kIndexBytes = 8;
constexpr int64_t kIndexBytesInBadOrder = 40;
constexpr int64_t kIndexHeaderBytes = 64 * 1024;
/// Which the file does not say, and the muxer asks for.
constexpr int kAacFrameSamples = 1024;

/// However long the disk takes.
SourceOptions ownFile()
{
    SourceOptions options;
    options.time_limit = {};
    return options;
}

int openTarget(OutputPtr& target, const AVFormatContext& source, ResultFile& file, int64_t index_bytes)
{
    AVFormatContext* context = nullptr;
    int code = avformat_alloc_output_context2(&context, nullptr, "mp4", nullptr);
    target.reset(context);
    for (unsigned i = 0; code >= 0 && i < source.nb_streams; ++i) {
        AVStream* stream = avformat_new_stream(context, nullptr);
        code =
            stream ? avcodec_parameters_copy(stream->codecpar, source.streams[i]->codecpar) : AVERROR(ENOMEM);
        if (code < 0)
            break;
        stream->codecpar->codec_tag = 0;
        if (stream->codecpar->codec_id == AV_CODEC_ID_AAC)
            stream->codecpar->frame_size = kAacFrameSamples;
        stream->time_base = source.streams[i]->time_base;
        stream->avg_frame_rate = source.streams[i]->avg_frame_rate;
    }
    if (code >= 0)
        code = file.openFor(*context);
    if (code >= 0)
        code = file.reserve(avio_size(source.pb) + index_bytes);
    Dictionary options;
    if (code >= 0)
        code = options.set("moov_size", std::to_string(index_bytes).c_str());
    return code >= 0 ? avformat_write_header(context, options.address()) : code;
}

/// In the order of the source: each fragment's pictures and each fragment's sound stay together, so that the
/// index is small.
int copyPackets(MediaSource& source, AVFormatContext& target)
{
    const PacketHandle packet = createPacket();
    if (!packet)
        return AVERROR(ENOMEM);
    for (;;) {
        int code = source.read(*packet);
        if (code == AVERROR_EOF)
            return 0;
        if (code < 0)
            return code;
        const auto index = size_t(packet->stream_index);
        av_packet_rescale_ts(packet.get(), source.format()->streams[index]->time_base,
                             target.streams[index]->time_base);
        packet->pos = -1;
        code = av_write_frame(&target, packet.get());
        av_packet_unref(packet.get());
        if (code < 0)
            return code;
    }
}

int rewrite(const std::string& path, int64_t index_bytes)
{
    MediaSource source;
    int code = source.open(path, ownFile());
    if (code < 0)
        return code;
    ResultFile file(path);
    OutputPtr target;
    code = openTarget(target, *source.format(), file, index_bytes);
    if (code >= 0)
        code = copyPackets(source, *target);
    if (code >= 0)
        code = av_write_trailer(target.get());
    return code >= 0 ? file.commit(*target) : code;
}

} // namespace

int putIndexInFront(const std::string& path, int64_t packets)
{
    const int code = rewrite(path, kIndexHeaderBytes + packets * kIndexBytes);
    if (code != AVERROR(EINVAL)) // what FFmpeg says when the index does not fit
        return code;
    return rewrite(path, kIndexHeaderBytes + packets * kIndexBytesInBadOrder);
}

bool hasPicture(const std::string& path)
{
    MediaSource source;
    const FrameHandle frame = createFrame();
    return frame && source.open(path, ownFile()) >= 0 && source.select(AVMEDIA_TYPE_VIDEO) >= 0 &&
           source.openDecoder() >= 0 && source.decode(*frame) >= 0;
}

} // namespace multimedia
