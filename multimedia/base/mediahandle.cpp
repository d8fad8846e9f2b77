#include "multimedia/base/mediahandle.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/frame.h>
}

namespace multimedia {

FrameHandle createFrame()
{
    return {av_frame_alloc(), destroyFrame};
}

PacketHandle createPacket()
{
    return {av_packet_alloc(), destroyPacket};
}

void destroyFrame(AVFrame* frame)
{
    av_frame_free(&frame);
}

void destroyPacket(AVPacket* packet)
{
    av_packet_free(&packet);
}

} // namespace multimedia
