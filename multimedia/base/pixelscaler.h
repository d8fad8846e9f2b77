#pragma once

#include "multimedia/base/ffmpegptr.h"

namespace multimedia {

struct PictureFormat
{
    AVPixelFormat format = AV_PIX_FMT_NONE;
    int width = 0;
    int height = 0;
};

/// The one place that makes scalers. Null for formats and sizes that cannot be converted, for some of which
/// FFmpeg would end the process.
///
/// @param flags  `SWS_*`: the way of scaling
SwsContextPtr makeScaler(const PictureFormat& from, const PictureFormat& to, int flags);

inline bool operator==(const PictureFormat& a, const PictureFormat& b)
{
    return a.format == b.format && a.width == b.width && a.height == b.height;
}

} // namespace multimedia
