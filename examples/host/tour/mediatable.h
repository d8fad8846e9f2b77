#pragma once

#include <QtCore/QStringList>

/// Prints what is in the files, one line each: container, codecs, size, frames, duration, sound level. Every
/// figure is read out of the file by `ffprobe` and by a full decode with `ffmpeg`.
///
/// @return false when a file cannot be read or decoded without an error
bool printMediaTable(const QStringList& files);
