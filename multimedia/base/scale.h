#pragma once

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/stage.h"

#include <QtCore/QSize>

#include <functional>

namespace multimedia {

/// Stage: converts size and pixel format, bicubic.
///
/// The scaler is made from the first frame and kept: frames that come later are taken for frames of that size
/// and format; one that is smaller or of another format cannot be, and is lost with a log line. Timestamps
/// are not carried over. No delay, nothing to flush.
class Scale
{
public:
    struct Params
    {
        std::function<void(FrameHandle)> on_frame;
        QSize size;            ///< pixels; a negative side stands for the size of the first frame
        int pixel_format = -1; ///< an `AVPixelFormat`
        /// Matrix from RGB to YUV of limited range, an `AVColorSpace`; FFmpeg's own (BT.601) by default.
        int color_space = AVCOL_SPC_UNSPECIFIED;
    };

    explicit Scale(Params params);

    /// Makes the scaler for frames like this one, unless there is one. True if there is one afterwards.
    bool open(AVFrame* frame);
    void close();
    void scale(FrameHandle frame);

private:
    bool run();
    FrameHandle convert(const AVFrame& frame) const;
    FrameHandle makeFrame() const;

    Params params;
    QSize source_size;
    int source_format = -1;
    SwsContextPtr scaler; ///< passes only
    /// Of results: to have memory of this size from the system is dear, since it is cleared each time.
    BufferPoolPtr pool;
    StageInput<FrameHandle> input;
};

} // namespace multimedia
