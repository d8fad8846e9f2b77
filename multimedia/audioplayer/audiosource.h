#pragma once

#include "multimedia/base/mediasource.h"

class QByteArray;

namespace multimedia {

/// Opens a file, or a URL that starts with "http", and finds its audio stream: what playing and inspecting
/// share. The reason of a failure is logged, and the source is closed then.
///
/// @param path  UTF-8
bool openSound(MediaSource& source, const QByteArray& path, AVIOInterruptCB cancelled = {nullptr, nullptr});

} // namespace multimedia
