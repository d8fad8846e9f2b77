#pragma once

#include <string>
#include <utility>
#include <vector>

/// @file
/// How FFmpeg is asked for a screen, for each system that has a capture input.

namespace multimedia {

/// Arguments of `MediaSource::openDevice`.
struct CaptureInput
{
    std::string format; ///< FFmpeg's name of the input; empty when there is nothing to open
    std::string device;
    std::vector<std::pair<std::string, std::string>> options; ///< in the order in which they are set
};

/// The screen `video_index` of this system, with the pointer drawn.
///
/// @param frame_rate   frames per second
/// @param video_index  as `getVideoIndex` gives it
CaptureInput captureInput(int frame_rate, int video_index);

/// macOS: `video_index` counts the cameras first, then the screens.
CaptureInput avfoundationInput(int frame_rate, int video_index);

/// X11: the rectangle that the screen `video_index` of `QGuiApplication::screens()` covers, in device pixels,
/// on the server named by DISPLAY. A position without a screen gives an
/// empty format, and so does an application that does not run on X11: DISPLAY does not name what it shows.
CaptureInput x11Input(int frame_rate, int video_index);

} // namespace multimedia
