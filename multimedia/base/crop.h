#pragma once

#include "multimedia/base/mediahandle.h"
#include "multimedia/base/stage.h"

#include <QtCore/QRect>

#include <functional>

namespace multimedia {

/// Stage: cuts a frame down to a rectangle without copying pixels.
///
/// A frame that the rectangle does not fit in is logged and goes no further. No delay, nothing to flush.
class Crop
{
public:
    struct Params
    {
        std::function<void(FrameHandle)> on_frame;
        QRect rect; ///< device pixels
    };

    explicit Crop(Params params);

    void crop(FrameHandle frame);

private:
    bool run();
    int apply(AVFrame& frame) const;

    Params params;
    StageInput<FrameHandle> input;
};

} // namespace multimedia
