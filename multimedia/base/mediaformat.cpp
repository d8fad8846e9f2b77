#include "multimedia/base/mediaformat.h"

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/avstring.h>
}

#include <array>
#include <cstring>
#include <unistd.h>

namespace multimedia {

const char* const kMediaFormats =
    // pictures and sound
    "asf,avi,dv,flv,gif,ivf,matroska,webm,mov,mp4,m4a,3gp,3g2,mj2,mpeg,mpegts,mxf,nut,ogg,rm,"
    // a stream of pictures
    "av1,obu,dirac,h261,h263,h264,hevc,m4v,mpegvideo,vc1,yuv4mpegpipe,"
    // sound
    "aac,ac3,aiff,amr,amrnb,amrwb,ape,au,caf,dsf,dts,eac3,flac,gsm,loas,mlp,mp3,mpc,mpc8,oma,qcp,tak,truehd,"
    "tta,"
    "voc,w64,wav,wv";

namespace {

constexpr size_t kFirstLook = 2048;
constexpr size_t kLongestLook = 1 << 20;
constexpr size_t kTagHeader = 10;
/// One behind the other, as some programs leave them.
constexpr int kMostTags = 8;
/// Entries of a tag. FFmpeg compares each with all before it.
constexpr int kMostEntries = 4096;

size_t readAt(int descriptor, void* bytes, size_t count, off_t position)
{
    const ssize_t got = ::pread(descriptor, bytes, count, position);
    return got > 0 ? size_t(got) : 0;
}

using TagHeader = std::array<unsigned char, kTagHeader>;

/// Of seven bits a byte.
uint32_t syncSafe(const unsigned char* bytes)
{
    return uint32_t(bytes[0] & 0x7f) << 21 | uint32_t(bytes[1] & 0x7f) << 14 |
           uint32_t(bytes[2] & 0x7f) << 7 | uint32_t(bytes[3] & 0x7f);
}

uint32_t bigEndian(const unsigned char* bytes, int count)
{
    uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | bytes[i];
    return value;
}

/// Entries of the tag from `position` to `end`, as far as they follow one another; not more than matter.
int countEntries(int descriptor, int version, off_t position, off_t end)
{
    const size_t header_bytes = version == 2 ? 6 : kTagHeader;
    int count = 0;
    TagHeader header{};
    while (count <= kMostEntries && position + off_t(header_bytes) < end &&
           readAt(descriptor, header.data(), header_bytes, position) == header_bytes && header[0] != 0) {
        const uint32_t size = version == 2   ? bigEndian(&header[3], 3)
                              : version == 3 ? bigEndian(&header[4], 4)
                                             : syncSafe(&header[4]);
        position += off_t(header_bytes) + off_t(size);
        ++count;
    }
    return count;
}

/// Where what the tags of ID3v2 (id3.org, versions 2.2 to 2.4) stand before begins; negative where they have
/// too many entries.
off_t endOfTags(int descriptor)
{
    off_t position = 0;
    for (int tag = 0; tag < kMostTags; ++tag) {
        TagHeader header{};
        if (readAt(descriptor, header.data(), kTagHeader, position) < kTagHeader ||
            std::memcmp(header.data(), "ID3", 3) != 0 || header[3] == 0xff || header[4] == 0xff)
            break;
        const off_t body = position + off_t(kTagHeader);
        const off_t end = body + off_t(syncSafe(&header[6]));
        if (countEntries(descriptor, header[3], body, end) > kMostEntries)
            return -1;
        constexpr int kHasFooter = 0x10;
        position = header[5] & kHasFooter ? end + off_t(kTagHeader) : end;
    }
    return position;
}

} // namespace

const AVInputFormat* recognise(int descriptor, int& score)
{
    score = 0;
    const off_t begin = endOfTags(descriptor);
    if (begin < 0) {
        warning("recognise", "tag has too many entries");
        return nullptr;
    }
    const BufferPtr bytes(static_cast<uint8_t*>(av_malloc(kLongestLook + AVPROBE_PADDING_SIZE)));
    if (!bytes)
        return nullptr;
    const AVInputFormat* format = nullptr;
    for (size_t wanted = kFirstLook; wanted <= kLongestLook && score <= AVPROBE_SCORE_RETRY; wanted *= 2) {
        const size_t got = readAt(descriptor, bytes.get(), wanted, begin);
        std::memset(bytes.get() + got, 0, AVPROBE_PADDING_SIZE);
        const AVProbeData data = {"", bytes.get(), int(got), nullptr};
        format = av_probe_input_format3(&data, 1, &score);
        if (got < wanted)
            break;
    }
    return format && av_match_name(format->name, kMediaFormats) ? format : nullptr;
}

} // namespace multimedia
