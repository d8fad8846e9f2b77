#include "multimedia/facedetectcnn/datablob.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

namespace {

constexpr std::size_t kAlignment = 128;
constexpr std::size_t kPixelAlignment = 16;
constexpr std::size_t kLargeSize = 4096;

bool isAligned(const void* pointer)
{
    return reinterpret_cast<std::uintptr_t>(pointer) % kAlignment == 0;
}

/// False when the product of the sizes is negative in a factor or larger than any memory.
bool byteCount(std::int32_t width, std::int32_t height, std::size_t channelStep, std::size_t* bytes)
{
    if (width < 0 || height < 0)
        return false;
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    return !__builtin_mul_overflow(pixels, channelStep, bytes);
}

} // namespace

void* myAlloc(std::size_t size)
{
    const std::size_t extra = kAlignment + sizeof(void*) + (size >= kLargeSize ? kAlignment : 0);
    if (size > std::numeric_limits<std::size_t>::max() - extra)
        return nullptr;
    char* raw = static_cast<char*>(std::malloc(size + extra));
    if (!raw)
        return nullptr;

    char* result = raw + kAlignment + sizeof(void*);
    result -= reinterpret_cast<std::uintptr_t>(result) % kAlignment;
    std::memcpy(result - sizeof(raw), &raw, sizeof(raw));
    return result;
}

void myFree_(void* pointer)
{
    if (!pointer || !isAligned(pointer))
        return;
    char* raw = nullptr;
    std::memcpy(&raw, static_cast<char*>(pointer) - sizeof(raw), sizeof(raw));
    std::free(raw);
}

std::int32_t truncateToInt(float value)
{
    constexpr float kLimit = 2147483648.0F;
    if (value >= -kLimit && value < kLimit)
        return static_cast<std::int32_t>(value);
    return std::numeric_limits<std::int32_t>::min();
}

template<class T>
CDataBlob<T>::CDataBlob(CDataBlob&& other) noexcept
{
    *this = std::move(other);
}

template<class T>
CDataBlob<T>& CDataBlob<T>::operator=(CDataBlob&& other) noexcept
{
    if (this == &other)
        return *this;
    clear();
    std::swap(data, other.data);
    std::swap(width, other.width);
    std::swap(height, other.height);
    std::swap(channels, other.channels);
    std::swap(channelStep, other.channelStep);
    std::swap(scale, other.scale);
    std::swap(bias, other.bias);
    return *this;
}

template<class T>
void CDataBlob<T>::clear()
{
    myFree_(data);
    data = nullptr;
    width = 0;
    height = 0;
    channels = 0;
    channelStep = 0;
    scale = 1.0F;
    bias = 0;
}

template<class T>
bool CDataBlob<T>::create(std::int32_t newWidth, std::int32_t newHeight, std::int32_t newChannels)
{
    clear();
    width = newWidth;
    height = newHeight;
    channels = newChannels;

    const std::size_t used = static_cast<std::size_t>(newChannels) * sizeof(T);
    const std::size_t step = (used + kPixelAlignment - 1) / kPixelAlignment * kPixelAlignment;
    std::size_t bytes = 0;
    if (newChannels >= 0 && step <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()) &&
        byteCount(newWidth, newHeight, step, &bytes)) {
        channelStep = static_cast<std::int32_t>(step);
        data = static_cast<T*>(myAlloc(bytes));
    }
    if (!data) {
        std::fprintf(stderr, "Failed to alloc memeory for uint8 data blob: %d*%d*%d\n", newWidth, newHeight,
                     newChannels);
        return false;
    }

    if (step > used) {
        // The last 16 bytes of a pixel hold all of its pad; a store of fixed size is one instruction.
        char* tail = reinterpret_cast<char*>(data) + step - kPixelAlignment;
        for (std::size_t left = pixelCount(); left > 0; --left, tail += step)
            std::memset(tail, 0, kPixelAlignment);
    }
    return true;
}

template<>
bool CDataBlob<signed char>::setInt8FilterData(const signed char* pData, std::int32_t filterBias,
                                               std::int32_t dataWidth, std::int32_t dataHeight,
                                               std::int32_t dataChannels)
{
    if (!pData) {
        std::fputs("The input image data is null.\n", stderr);
        return false;
    }
    if (dataWidth != width || dataHeight != height || dataChannels != channels) {
        std::fputs("The dimension of the data can not match that of the Blob.\n", stderr);
        return false;
    }
    for (std::int32_t row = 0; row < height; ++row) {
        for (std::int32_t column = 0; column < width; ++column) {
            signed char* target = pixel(column, row);
            for (std::int32_t channel = 0; channel < channels; ++channel)
                target[channel] = pData[(channel * height + row) * width + column];
        }
    }
    bias = filterBias;
    return true;
}

template class CDataBlob<unsigned char>;
template class CDataBlob<signed char>;
template class CDataBlob<std::int32_t>;
template class CDataBlob<float>;
