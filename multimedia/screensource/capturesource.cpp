#include "multimedia/screensource/capturesource.h"

#include "multimedia/base/screenlist.h"
#include "multimedia/screensource/devicepixels.h"

#include <algorithm>
#include <utility>

namespace multimedia {

CaptureSource::CaptureSource(Params given)
    : params(std::move(given))
    , wanted(toDevicePixels(params.rect, ScreenList::instance().screen(params.screen_index()).pixel_ratio))
{}

void CaptureSource::open()
{
    format_in.reset();
    decode.reset();
    FormatHandle capture = FormatIn::createVideo({params.frame_rate, params.screen_index()});
    Decode::Params decoded;
    decoded.on_frame = params.on_frame;
    decoded.format = capture.get();
    decoded.is_video = true;
    decode = std::make_unique<Decode>(std::move(decoded));

    FormatIn::Params opened;
    opened.on_video = [this](PacketHandle packet) { onCaptured(std::move(packet)); };
    opened.format = std::move(capture);
    format_in = std::make_unique<FormatIn>(std::move(opened));
    idle_since = std::chrono::steady_clock::now();
}

void CaptureSource::start()
{
    // A capture that was not read for a while hands out the frames that it owes for that time all at once.
    const std::chrono::milliseconds frame_time(1000 / std::max(1, params.frame_rate));
    if (std::chrono::steady_clock::now() - idle_since > frame_time)
        open();
    format_in->start();
}

void CaptureSource::stop()
{
    format_in->stop();
    idle_since = std::chrono::steady_clock::now();
}

/// A capture that works, and a rectangle on the screen.
bool CaptureSource::canDeliver() const
{
    const AVStream* captured = decode->getStream();
    return format_in->canDeliver() && captured &&
           QRect(0, 0, captured->codecpar->width, captured->codecpar->height).contains(wanted);
}

void CaptureSource::onCaptured(PacketHandle packet)
{
    if (!packet || !packet->buf || !params.admit || params.admit(&packet->buf))
        decode->decode(std::move(packet));
}

} // namespace multimedia
