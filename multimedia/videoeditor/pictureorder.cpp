#include "multimedia/videoeditor/pictureorder.h"

#include "multimedia/base/mediasource.h"

#include <algorithm>
#include <cstring>
#include <numeric>

using namespace multimedia;

namespace {
/// Some groups of pictures, as a rule.
constexpr int kLook = 64;
} // namespace

PictureOrder::PictureOrder(MediaSource& source)
{
    const AVCodecParameters& parameters = *source.stream()->codecpar;
    const bool counts = parameters.codec_id == AV_CODEC_ID_H264 || parameters.codec_id == AV_CODEC_ID_HEVC;
    if (!counts || parameters.video_delay <= 0 || std::strcmp(source.format()->iformat->name, "avi") != 0)
        return;
    const PacketHandle packet = createPacket();
    if (!packet || MediaSource::makeDecoder(codec, *source.stream()) < 0)
        return;
    parser.reset(av_parser_init(parameters.codec_id));
    if (!parser)
        return;
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    int64_t former = AV_NOPTS_VALUE;
    for (int seen = 0; seen < kLook && source.read(*packet) >= 0; av_packet_unref(packet.get())) {
        if (packet->stream_index != source.streamIndex())
            continue;
        step = std::gcd(step, count(*packet));
        if (packet->dts != AV_NOPTS_VALUE && former != AV_NOPTS_VALUE)
            tick = std::gcd(tick, packet->dts - former);
        former = packet->dts;
        ++seen;
    }
    step = std::max(step, 1);
    tick = std::max<int64_t>(tick, 1);
}

/// What the picture's place is among those that are shown.
int PictureOrder::count(const AVPacket& packet)
{
    uint8_t* data = nullptr;
    int size = 0;
    av_parser_parse2(parser.get(), codec.get(), &data, &size, packet.data, packet.size, packet.pts,
                     packet.dts, packet.pos);
    return parser->output_picture_number;
}

void PictureOrder::complete(AVPacket& packet)
{
    if (!parser || packet.dts == AV_NOPTS_VALUE)
        return;
    const int64_t place = count(packet) / step;
    if (origin == AV_NOPTS_VALUE || place == 0)
        origin = packet.dts + (codec->has_b_frames - place) * tick;
    packet.pts = origin + place * tick;
}
