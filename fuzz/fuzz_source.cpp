// Whatever is opened, as any subject opens it: its streams, and the first frames of the best picture and
// sound.
#include "fuzz/input.h"
#include "multimedia/base/mediasource.h"

using namespace multimedia;

void fuzz(const uint8_t* data, size_t size)
{
    constexpr int kFrames = 20;
    constexpr int kSide = 2000;
    const InputFile file(data, size);
    const FrameHandle frame = createFrame();
    for (const AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
        MediaSource source;
        SourceOptions options;
        options.completes_times = type == AVMEDIA_TYPE_VIDEO;
        options.max_pixels = int64_t(kSide) * kSide; // or nothing else is done but to clear memory
        if (source.open(file.path(), options) < 0 || source.findStreams() < 0 || source.select(type) < 0)
            continue;
        source.duration();
        if (source.openDecoder() < 0)
            continue;
        for (int i = 0; i < kFrames && source.decode(*frame) >= 0; ++i)
            av_frame_unref(frame.get());
    }
}
