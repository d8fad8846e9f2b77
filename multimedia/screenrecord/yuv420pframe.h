#pragma once

#include "multimedia/base/mediahandle.h"
#include "multimedia/multimedia_global.h"

#include <cstdint>

namespace multimedia {

/// A picture in planar YUV 4:2:0, sharing its pixels with the frame that it was made from.
///
/// Move-only. The pixels stay valid for as long as the value lives. Planes are as wide as the picture (luma)
/// and half as wide (chroma); their lines may be padded. Those of a grabber lie in one piece of memory, one
/// behind the other, so that their distance tells how long a line is.
class MULTIMEDIA_EXPORT Yuv420pFrame
{
public:
    /// An empty frame: width and height 0, null planes.
    Yuv420pFrame();
    /// A new reference to `frame`. Null is logged and gives an empty frame.
    explicit Yuv420pFrame(const AVFrame* frame);

    /// True for every frame that was not moved from, an empty one included.
    bool isValid() const { return frame != nullptr; }
    int getWidth() const;
    int getHeight() const;
    const uint8_t* getYChannel() const { return plane(0); }
    const uint8_t* getUChannel() const { return plane(1); }
    const uint8_t* getVChannel() const { return plane(2); }

private:
    const uint8_t* plane(int index) const;

    FrameHandle frame;
};

} // namespace multimedia
