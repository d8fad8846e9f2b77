#include "multimedia/mediahandler/cmediaencode.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/mediahandler/mediaerror.h"

int CMediaEncode::setEncodeId(AVCodecID id)
{
    close();
    codec = avcodec_find_encoder(id);
    if (!codec)
        return mediaError(AVERROR(EINVAL));
    context.reset(avcodec_alloc_context3(codec));
    packet = multimedia::createPacket();
    if (!context || !packet) {
        close();
        return mediaError(AVERROR(ENOMEM));
    }
    return 0;
}

int CMediaEncode::setEncodeAudioParam(long long bitRate, int sampleRate, int channels,
                                      unsigned long long channelLayout, AVSampleFormat format, int& frameSize)
{
    if (!context || channels != multimedia::channelCount(uint64_t(channelLayout)))
        return mediaError(AVERROR(EINVAL));
    context->bit_rate = bitRate;
    context->sample_rate = sampleRate;
    multimedia::setChannelMask(*context, channelLayout);
    context->sample_fmt = format;
    context->codec_type = AVMEDIA_TYPE_AUDIO;
    const int result = avcodec_open2(context.get(), codec, nullptr);
    if (result < 0)
        return mediaError(result);
    frameSize = context->frame_size;
    return 0;
}

void CMediaEncode::setEncodeCallback(Callback function, CMediaOutput* argument)
{
    callback = function;
    output = argument;
}

int CMediaEncode::encode(const AVFrame* frame)
{
    if (!context)
        return AVERROR(EINVAL);
    int result = avcodec_send_frame(context.get(), frame);
    if (result < 0)
        return mediaError(result);
    while ((result = avcodec_receive_packet(context.get(), packet.get())) >= 0) {
        if (callback)
            callback(packet.get(), output);
        av_packet_unref(packet.get());
    }
    return mediaError(result);
}

void CMediaEncode::close()
{
    if (context && avcodec_is_open(context.get()))
        encode(nullptr);
    context.reset();
    packet.reset();
}
