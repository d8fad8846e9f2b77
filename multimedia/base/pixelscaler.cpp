#include "multimedia/base/pixelscaler.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace multimedia {

namespace {

bool isPicture(const PictureFormat& picture)
{
    return picture.width > 0 && picture.height > 0 && av_pix_fmt_desc_get(picture.format);
}

} // namespace

SwsContextPtr makeScaler(const PictureFormat& from, const PictureFormat& to, int flags)
{
    if (!isPicture(from) || !isPicture(to) || !sws_isSupportedInput(from.format) ||
        !sws_isSupportedOutput(to.format))
        return {};
    return SwsContextPtr(sws_getContext(from.width, from.height, from.format, to.width, to.height, to.format,
                                        flags, nullptr, nullptr, nullptr));
}

} // namespace multimedia
