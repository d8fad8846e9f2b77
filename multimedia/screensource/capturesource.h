#pragma once

#include "multimedia/base/decode.h"
#include "multimedia/base/formatin.h"
#include "multimedia/screensource/screensource.h"

#include <chrono>
#include <memory>

namespace multimedia {

/// FFmpeg's capture of the whole screen: `FormatIn` and `Decode`. Never asks, and never ends.
class CaptureSource : public ScreenSource
{
public:
    explicit CaptureSource(Params params);

    State state() const override { return State::Ready; }
    QRect area() const override { return wanted; }
    void open() override;
    void start() override;
    void stop() override;
    bool canDeliver() const override;

private:
    void onCaptured(PacketHandle packet);

    const Params params;
    const QRect wanted;
    std::chrono::steady_clock::time_point idle_since;
    std::unique_ptr<Decode> decode;
    std::unique_ptr<FormatIn> format_in; ///< goes first: it reads into `decode`
};

} // namespace multimedia
