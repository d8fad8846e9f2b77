#include "multimedia/mediahandler/cmediadecode.h"

#include "multimedia/base/openinput.h"
#include "multimedia/mediahandler/mediaerror.h"

#include <QtCore/QString>

namespace {
constexpr int kSampleBytes = 2;
constexpr int kMaxPcmBytes = 1 << 30;
} // namespace

int CMediaDecode::openInputFile(const QString& path)
{
    int result = multimedia::openInput(input, path.toStdString());
    if (result < 0)
        return mediaError(result);
    result = avformat_find_stream_info(input.get(), nullptr);
    if (result < 0)
        return mediaError(result);
    stream_index = av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (stream_index < 0)
        return mediaError(stream_index);

    const AVCodecParameters* parameters = input->streams[stream_index]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    if (!codec) {
        av_log(nullptr, AV_LOG_ERROR, "can't find decoder\n");
        return AVERROR_BUG;
    }
    decoder.reset(avcodec_alloc_context3(codec));
    if (!decoder)
        return mediaError(AVERROR(ENOMEM));
    result = avcodec_parameters_to_context(decoder.get(), parameters);
    if (result < 0)
        return mediaError(result);
    result = avcodec_open2(decoder.get(), codec, nullptr);
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
    decoder.reset();
    input.reset();
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
    while (!cancelled && av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == stream_index && !decodePacket(packet.get()))
            cancelled = true;
        av_packet_unref(packet.get());
    }
}

/// False when the stream is corrupt or too long.
bool CMediaDecode::decodePacket(const AVPacket* packet)
{
    int result = avcodec_send_packet(decoder.get(), packet);
    while (!cancelled && result >= 0) {
        result = avcodec_receive_frame(decoder.get(), frame.get());
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
