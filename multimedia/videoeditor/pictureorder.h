#pragma once

#include "multimedia/base/ffmpegptr.h"

#include <cstdint>

namespace multimedia {
class MediaSource;
}

/// Times at which the pictures of an AVI are shown, which the container does not tell.
///
/// It has a picture for each tick and stores them in the order in which they are decoded. H.264 and HEVC
/// count their pictures in the order in which they are shown, from one at which decoding can begin to the
/// next (picture order count: ITU-T H.264, 8.2.1; H.265, 8.3.1). One thread.
class PictureOrder
{
public:
    /// Reads the first pictures of the selected stream to learn by what its count grows; the source has to be
    /// sought afterwards.
    explicit PictureOrder(multimedia::MediaSource& source);

    /// Whether the pictures have to be counted: for other streams `complete` does nothing.
    bool isNeeded() const { return parser != nullptr; }
    /// Gives the next packet of the stream the time at which its picture is shown.
    void complete(AVPacket& packet);

private:
    struct ParserDeleter
    {
        void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
    };

    int count(const AVPacket& packet);

    multimedia::CodecContextPtr codec;
    std::unique_ptr<AVCodecParserContext, ParserDeleter> parser;
    int step = 0;                    ///< between the counts of neighbours
    int64_t tick = 0;                ///< between the times of neighbours
    int64_t origin = AV_NOPTS_VALUE; ///< when the picture of count 0 is shown
};
