#include "multimedia/base/decode.h"

#include "multimedia/base/mediasource.h"
#include "multimedia/base/warning.h"

namespace multimedia {

Decode::Decode(Params params)
    : params(std::move(params))
    , input([this] { return run(); })
{
    if (!open())
        close();
}

Decode::~Decode()
{
    decode(createPacket());
    input.finish();
}

bool Decode::open()
{
    if (codec)
        return true;
    const AVMediaType type = params.is_video ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
    const int index = params.format ? av_find_best_stream(params.format, type, -1, -1, nullptr, 0)
                                    : AVERROR_STREAM_NOT_FOUND;
    if (index < 0) {
        warning("open", "error in find stream");
        return false;
    }
    stream = params.format->streams[index];
    const int code = MediaSource::makeDecoder(codec, *stream);
    if (code == AVERROR_DECODER_NOT_FOUND) {
        warning("open", "error in find decoder");
        return false;
    }
    if (code < 0) {
        warning("open", "error in open decode", code);
        return false;
    }
    av_dump_format(params.format, stream->index, params.format->url, 0);
    return true;
}

void Decode::close()
{
    codec.reset();
    stream = nullptr;
}

void Decode::decode(PacketHandle packet)
{
    input.push(std::move(packet));
}

bool Decode::run()
{
    if (!codec) {
        warning("run", "empty decode");
        return false;
    }
    for (const PacketHandle& packet : input.take()) {
        const int code = avcodec_send_packet(codec.get(), packet.get());
        if (code == 0)
            receiveFrames();
        else
            warning("run", "error in send packet", code);
    }
    return input.refilled();
}

void Decode::receiveFrames()
{
    for (;;) {
        FrameHandle frame = createFrame();
        const int code = frame ? avcodec_receive_frame(codec.get(), frame.get()) : AVERROR(ENOMEM);
        if (code == AVERROR_EOF || code == AVERROR(EAGAIN))
            return;
        if (code != 0) {
            warning("run", "error in receive frame", code);
            return;
        }
        std::lock_guard lock(input.mutex);
        params.on_frame(std::move(frame));
    }
}

} // namespace multimedia
