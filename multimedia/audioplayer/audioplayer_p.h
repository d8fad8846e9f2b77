#pragma once

#include "multimedia/base/ffmpegptr.h"

#include <QtCore/QByteArray>

/// @file
/// What playing and inspecting share.

/// Opens a file, or a URL that starts with "http", and finds its audio stream. The reason of a failure is
/// logged.
///
/// @param out  may hold the input even on failure
bool initFormat(multimedia::InputPtr& out, int& streamIndex, const QByteArray& path,
                AVIOInterruptCB interrupt);
