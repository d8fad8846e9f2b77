// Preloaded into xdg-desktop-portal-wlr where there is no graphics card: it refuses a compositor that cannot
// give its pictures as handles of one, though it would take them in memory. So the compositor is made to say
// that it could; without the protocol to do so, memory it stays.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>

extern "C" const char* wl_proxy_get_class(void* proxy);

namespace {

using Listener = void (*)();
using AddListener = int (*)(void*, Listener*, void*);
using Announce = void (*)(void* data, void* frame, uint32_t format, uint32_t width, uint32_t height);
using AnnounceBuffer = void (*)(void* data, void* frame, uint32_t format, uint32_t width, uint32_t height,
                                uint32_t stride);
using AnnounceDone = void (*)(void* data, void* frame);

/// Of zwlr_screencopy_frame_v1: buffer, flags, ready, failed, damage, linux_dmabuf, buffer_done.
constexpr int kBuffer = 0;
constexpr int kLinuxDmabuf = 5;
constexpr int kBufferDone = 6;
constexpr uint32_t kXrgb8888 = 0x34325258;

std::array<Listener, 7> original;
std::array<Listener, 7> replaced;
uint32_t frame_width = 0;
uint32_t frame_height = 0;

void onBuffer(void* data, void* frame, uint32_t format, uint32_t width, uint32_t height, uint32_t stride)
{
    frame_width = width;
    frame_height = height;
    reinterpret_cast<AnnounceBuffer>(original[kBuffer])(data, frame, format, width, height, stride);
}

void onBufferDone(void* data, void* frame)
{
    reinterpret_cast<Announce>(original[kLinuxDmabuf])(data, frame, kXrgb8888, frame_width, frame_height);
    reinterpret_cast<AnnounceDone>(original[kBufferDone])(data, frame);
}

} // namespace

extern "C" int wl_proxy_add_listener(void* proxy, Listener* listeners, void* data)
{
    static const auto next = reinterpret_cast<AddListener>(dlsym(RTLD_NEXT, "wl_proxy_add_listener"));
    if (std::strcmp(wl_proxy_get_class(proxy), "zwlr_screencopy_frame_v1") != 0)
        return next(proxy, listeners, data);
    std::copy_n(listeners, original.size(), original.begin());
    replaced = original;
    replaced[kBuffer] = reinterpret_cast<Listener>(onBuffer);
    replaced[kBufferDone] = reinterpret_cast<Listener>(onBufferDone);
    return next(proxy, replaced.data(), data);
}
