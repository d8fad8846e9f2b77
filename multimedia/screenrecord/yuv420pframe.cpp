#include "multimedia/screenrecord/yuv420pframe.h"

#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace multimedia {

Yuv420pFrame::Yuv420pFrame()
    : frame(createFrame())
{}

Yuv420pFrame::Yuv420pFrame(const AVFrame* source)
    : Yuv420pFrame()
{
    const int code = source && frame ? av_frame_ref(frame.get(), source) : 0;
    if (!source || code < 0)
        warning("Yuv420pFrame", "invalid frame", code);
}

int Yuv420pFrame::getWidth() const
{
    return frame ? frame->width : 0;
}

int Yuv420pFrame::getHeight() const
{
    return frame ? frame->height : 0;
}

const uint8_t* Yuv420pFrame::plane(int index) const
{
    return frame ? frame->data[index] : nullptr;
}

} // namespace multimedia
