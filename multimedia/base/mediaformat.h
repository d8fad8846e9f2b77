#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

/// @file
/// What counts as media, by its bytes.

namespace multimedia {

/// FFmpeg's names of the containers that are opened. All of them hold what they show: none names other files,
/// devices or addresses to be read, and none is a single picture or a sequence of them, but for GIF.
extern const char* const kMediaFormats;

/// What the file of `descriptor` is; null for what is not opened. Tags of ID3 in front of it are looked
/// past, and refused where they are made to take long.
///
/// @param score  how sure that is, as FFmpeg counts: 0 to 100
const AVInputFormat* recognise(int descriptor, int& score);

} // namespace multimedia
