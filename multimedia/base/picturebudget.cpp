#include "multimedia/base/picturebudget.h"

extern "C" {
#include <libavutil/buffer.h>
}

#include <cstdint>
#include <utility>

namespace multimedia {

namespace {

struct Charge
{
    AVBufferRef* counted = nullptr; ///< owned
    std::shared_ptr<std::atomic<std::size_t>> bytes_used;
    std::function<void()> on_release;
};

void release(void* opaque, uint8_t*)
{
    const std::unique_ptr<Charge> charge(static_cast<Charge*>(opaque));
    *charge->bytes_used -= charge->counted->size;
    av_buffer_unref(&charge->counted);
    if (charge->on_release)
        charge->on_release();
}

} // namespace

bool PictureBudget::hasRoom(std::size_t bytes) const
{
    const std::size_t present = *bytes_used;
    return present == 0 || present + bytes <= limit;
}

bool PictureBudget::charge(AVBufferRef** buffer, std::function<void()> on_release)
{
    const int flags = av_buffer_is_writable(*buffer) ? 0 : AV_BUFFER_FLAG_READONLY;
    auto charge = std::make_unique<Charge>(Charge{*buffer, bytes_used, std::move(on_release)});
    AVBufferRef* counted = av_buffer_create((*buffer)->data, (*buffer)->size, release, charge.get(), flags);
    if (!counted)
        return false;
    *bytes_used += (*buffer)->size;
    *buffer = counted;
    (void)charge.release(); // `counted` owns it
    return true;
}

} // namespace multimedia
