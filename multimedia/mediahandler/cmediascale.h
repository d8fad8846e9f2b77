#pragma once

#include "multimedia/base/pixelscaler.h"

/// A picture scaler and pixel format converter with its options.
///
/// Results are FFmpeg's; failures are logged. One thread at a time.
class CMediaScale
{
public:
    void setSrcOpt(AVPixelFormat format, int width, int height);
    void setDestOpt(AVPixelFormat format, int width, int height);
    /// Makes the scaler from the options: 0 or a negative code.
    int preScale();
    /// Scales a slice as `sws_scale` does; makes the scaler on first use. Lines written, or a negative code.
    int scale(const uint8_t* const* src, const int* srcStride, int srcSliceY, int srcSliceH,
              uint8_t* const* dst, const int* dstStride);

private:
    multimedia::SwsContextPtr context;
    multimedia::PictureFormat source;
    multimedia::PictureFormat destination;
};
