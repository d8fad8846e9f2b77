#include "multimedia/mediahandler/cmediadecode.h"

#include "multimedia/mediahandler/mediaerror.h"

#include <QtCore/QString>

namespace {
constexpr int kSampleBytes = 2;
constexpr int kMaxPcmBytes = 1 << 30;
} // namespace

int CMediaDecode::openInputFile(const QString& path)
{
    int result = source.open(path.toStdString());
    if (result >= 0)
        result = source.findStreams();
    if (result >= 0)
        result = source.select(AVMEDIA_TYPE_AUDIO);
    if (result < 0)
        return mediaError(result);
    source.limitTime({}); // whoever waits may cancel
    result = source.openDecoder();
    if (result == AVERROR_DECODER_NOT_FOUND) {
        av_log(nullptr, AV_LOG_ERROR, "can't find decoder\n");
        return AVERROR_BUG;
    }
    return result < 0 ? mediaError(result) : 0;
}

QByteArray CMediaDecode::decodeAudio(const QString& path)
{
    pcm.clear();
    info.clear();
    if (openInputFile(path) != 0)
        return {};
    frame_format = AV_SAMPLE_FMT_NONE;
    block.clear();
    decodePackets();
    resample.reset();
    frame.reset();
    source.close();
    if (cancelled)
        pcm.clear();
    return pcm;
}

void CMediaDecode::decodePackets()
{
    frame = multimedia::createFrame();
    const multimedia::PacketHandle packet = multimedia::createPacket();
    if (!frame || !packet) {
        mediaError(AVERROR(ENOMEM));
        return;
    }
    while (!cancelled && source.read(*packet) >= 0) {
        if (packet->stream_index == source.streamIndex() && !decodePacket(packet.get()))
            cancelled = true;
        av_packet_unref(packet.get());
    }
}

/// False when the stream is corrupt or too long.
bool CMediaDecode::decodePacket(const AVPacket* packet)
{
    int result = avcodec_send_packet(source.codec(), packet);
    while (!cancelled && result >= 0) {
        result = avcodec_receive_frame(source.codec(), frame.get());
        if (result < 0)
            break;
        const bool appended = appendFrame(frame.get());
        av_frame_unref(frame.get());
        if (!appended)
            return false;
    }
    if (result >= 0 || result == AVERROR_EOF || result == AVERROR(EAGAIN))
        return true;
    mediaError(result);
    return false;
}

bool CMediaDecode::appendFrame(const AVFrame* decoded)
{
    const int bytes = kSampleBytes * decoded->nb_samples;
    if (bytes > kMaxPcmBytes - pcm.size()) {
        mediaError(AVERROR(EFBIG));
        return false;
    }
    if (!prepareFor(decoded))
        return false;
    if (bytes > block.size()) {
        block.resize(bytes);
        info = {{QStringLiteral("channels"), 1},
                {QStringLiteral("sampleRate"), decoded->sample_rate},
                {QStringLiteral("sampleFormat"), QStringLiteral("PCMFormatInt16")},
                {QStringLiteral("interleaved"), false}};
    }
    block.fill(0);
    auto* out = reinterpret_cast<uint8_t*>(block.data());
    resample.convert(&out, decoded->nb_samples, decoded->extended_data, decoded->nb_samples);
    pcm.append(block.constData(), bytes);
    return true;
}

/// Sets the converter up for the first frame. A later one of another format is refused: the converter would
/// read past its planes.
bool CMediaDecode::prepareFor(const AVFrame* decoded)
{
    const auto format = AVSampleFormat(decoded->format);
    if (frame_format == AV_SAMPLE_FMT_NONE) {
        frame_format = format;
        resample.setSrcopt(AV_CH_LAYOUT_MONO, decoded->sample_rate, format);
        resample.setDstopt(AV_CH_LAYOUT_MONO, decoded->sample_rate, AV_SAMPLE_FMT_S16);
        resample.initOpt();
    }
    if (format == frame_format)
        return true;
    mediaError(AVERROR_INPUT_CHANGED);
    return false;
}
