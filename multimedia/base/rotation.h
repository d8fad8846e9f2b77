#pragma once

#include <optional>

struct AVStream;

/// @file
/// How a video says that it was filmed with the camera turned.
///
/// Two forms are in use: a "rotate" tag in the stream's metadata (Matroska, and files of older tools) and a
/// display matrix beside the stream (MP4, MOV). Here both are one number: clockwise degrees by which a player
/// turns the decoded pictures so that they stand upright, as the tag counts them. A display matrix counts the
/// other way round.

namespace multimedia {

/// Counterclockwise degrees, -180 to 180, of the stream's display matrix. Empty without one, or for one that
/// turns nothing into anything.
std::optional<double> displayTurn(const AVStream& stream);

/// Value of the stream's "rotate" tag, whatever it holds; without one the turn of its display matrix, 0 to
/// 359. Empty when it has neither.
std::optional<int> rotateTag(const AVStream& stream);

/// Gives a stream that is about to be muxed its rotation in both forms; every muxer writes the one it knows.
/// A display matrix that stands there already is kept.
///
/// @param clockwise_degrees  as `rotateTag` gives it
/// @return false when memory is short
bool setRotation(AVStream& stream, int clockwise_degrees);

} // namespace multimedia
