#pragma once

#include <functional>
#include <memory>

struct AVFormatContext;
struct AVFrame;
struct AVPacket;

/// @file
/// Owning handles in which FFmpeg objects travel between stages.
///
/// A handle is a move-only pair of a pointer and the callable that releases it; the callable travels with the
/// object. A moved-from handle holds null. A non-null pointer with an empty callable is a programming fault:
/// its release throws `std::bad_function_call`, which ends the process where it comes from a destructor.

namespace multimedia {

using FrameHandle = std::unique_ptr<AVFrame, std::function<void(AVFrame*)>>;
using PacketHandle = std::unique_ptr<AVPacket, std::function<void(AVPacket*)>>;
/// Made by `FormatIn` and `FormatOut`, each with its own release callable.
using FormatHandle = std::unique_ptr<AVFormatContext, std::function<void(AVFormatContext*)>>;

/// An empty frame; the handle is null when memory is short.
FrameHandle createFrame();
/// An empty packet; the handle is null when memory is short.
PacketHandle createPacket();

void destroyFrame(AVFrame* frame);
void destroyPacket(AVPacket* packet);

} // namespace multimedia
