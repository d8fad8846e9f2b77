// Whatever is opened, as any subject opens it: its streams, and the first frames of the best picture and
// sound. Tells in the end which of the demuxers that are allowed have not opened anything.
#include "fuzz/input.h"
#include "multimedia/base/mediaformat.h"
#include "multimedia/base/mediasource.h"

extern "C" {
#include <libavutil/avstring.h>
}

#include <cstdio>
#include <set>
#include <string>

using namespace multimedia;

namespace {

/// Of the demuxers that opened a file.
class Tally
{
public:
    ~Tally()
    {
        std::string idle;
        int allowed = 0;
        void* position = nullptr;
        while (const AVInputFormat* demuxer = av_demuxer_iterate(&position)) {
            if (!av_match_name(demuxer->name, kMediaFormats))
                continue;
            ++allowed;
            if (opened.count(demuxer) == 0)
                idle += std::string(" ") + demuxer->name;
        }
        std::fprintf(stderr, "demuxers: %zu of %d; idle:%s\n", opened.size(), allowed, idle.c_str());
    }
    void add(const AVInputFormat* demuxer) { opened.insert(demuxer); }

private:
    std::set<const AVInputFormat*> opened;
};

} // namespace

void fuzz(const uint8_t* data, size_t size)
{
    static Tally tally;
    constexpr int kFrames = 20;
    constexpr int kSide = 2000;
    const InputFile file(data, size);
    const FrameHandle frame = createFrame();
    for (const AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
        MediaSource source;
        SourceOptions options;
        options.completes_times = type == AVMEDIA_TYPE_VIDEO;
        options.max_pixels = int64_t(kSide) * kSide; // or nothing else is done but to clear memory
        if (source.open(file.path(), options) < 0)
            continue;
        tally.add(source.format()->iformat);
        if (source.findStreams() < 0 || source.select(type) < 0)
            continue;
        source.duration();
        if (source.openDecoder() < 0)
            continue;
        for (int i = 0; i < kFrames && source.decode(*frame) >= 0; ++i)
            av_frame_unref(frame.get());
    }
}
