#pragma once

class QScreen;

/// @file
/// Rights to capture, and the capture device that stands for a screen.

namespace multimedia {

/// Whether the running system is at least of this version; true where the numbering is not this system's.
bool checkVersion(int major, int minor);

/// Asks for the right to use cameras or microphones; blocks until the user has answered.
bool requestAVCaptureDevicePermission(bool is_video);
bool checkCapturePermission(bool is_video);
bool checkScreenCapturePermission();
void requestScreenCapturePermission();

/// Index of the capture device that shows `screen`, as `FormatIn::VideoInfo` takes it; one that opens nothing
/// when the screen is not there.
int getVideoIndex(QScreen* screen);

} // namespace multimedia
