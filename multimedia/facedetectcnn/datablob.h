#pragma once

#include <cstddef>
#include <cstdint>

/// @file
/// Tensor storage of the face detector.

/// Memory aligned to 128 bytes, or null. Freed by `myFree_` only.
void* myAlloc(std::size_t size);

/// Frees what `myAlloc` gave. Null and pointers that are not aligned to 128 bytes are ignored.
void myFree_(void* pointer);

/// `value` cut to its integer part. What no int32 can hold, infinities and not-a-number included, gives the
/// most negative int32, as x86 processors do.
std::int32_t truncateToInt(float value);

/// A three-dimensional tensor that owns its memory.
///
/// Pixels are interleaved, channel fastest: the element (x, y, c) lies at byte
/// (y * width + x) * channelStep + c * sizeof(T). The pad bytes between the channels and `channelStep` are
/// zero after `create` and must stay zero, since the 3x3 convolution multiplies across them.
///
/// A blob belongs to one thread at a time.
template<class T>
class CDataBlob
{
public:
    T* data = nullptr;            ///< null while the blob is empty
    std::int32_t width = 0;       ///< columns
    std::int32_t height = 0;      ///< rows
    std::int32_t channels = 0;    ///< values a pixel
    std::int32_t channelStep = 0; ///< bytes from one pixel to the next, a multiple of 16
    float scale = 1.0F;           ///< real value = stored value / scale
    /// In a filter, the quantised bias. In an activation, the stored value that stands for the real 1.0.
    std::int32_t bias = 0;

    CDataBlob() = default;
    ~CDataBlob() { clear(); }
    CDataBlob(const CDataBlob&) = delete;
    CDataBlob& operator=(const CDataBlob&) = delete;
    /// The source becomes empty.
    CDataBlob(CDataBlob&& other) noexcept;
    CDataBlob& operator=(CDataBlob&& other) noexcept;

    /// Empties the blob and gives it these sizes. Only the pad bytes are set, to zero. False, with a line on
    /// the standard error stream and no data, when there is no memory.
    bool create(std::int32_t newWidth, std::int32_t newHeight, std::int32_t newChannels);

    /// Frees the data and makes the blob what a fresh one is.
    void clear();

    /// The first channel of the pixel (x, y).
    T* pixel(std::int32_t x, std::int32_t y) { return pixelAt(data, x, y); }
    const T* pixel(std::int32_t x, std::int32_t y) const { return pixelAt(data, x, y); }

    std::size_t pixelCount() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }

    /// For signed char only: fills the blob from a planar filter (channel, then row, then column).
    /// False, with a line on the standard error stream, when `pData` is null or the sizes differ.
    bool setInt8FilterData(const signed char* pData, std::int32_t filterBias, std::int32_t dataWidth,
                           std::int32_t dataHeight, std::int32_t dataChannels);

    /// For unsigned char only: unfolds the 3x3 window of stride 2 and pad 1 around every second pixel of an
    /// image into 27 channels (window row, window column, byte), so that the first layer can run as a 1x1
    /// convolution.
    ///
    /// @param imageData  `imageChannels` bytes a pixel, in the order in which the model wants them: blue,
    ///                   green, red
    /// @param rowStep    bytes from one row to the next
    /// False, with a line on the standard error stream, for a null image or one without 3 channels.
    bool setDataFrom3x3S2P1to1x1S1P0FromImage(const unsigned char* imageData, std::int32_t imageWidth,
                                              std::int32_t imageHeight, std::int32_t imageChannels,
                                              std::int32_t rowStep);

private:
    template<class Element>
    Element* pixelAt(Element* first, std::int32_t x, std::int32_t y) const
    {
        const std::size_t index =
            static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
        return first + index * static_cast<std::size_t>(channelStep) / sizeof(T);
    }
};

template<>
bool CDataBlob<signed char>::setInt8FilterData(const signed char* pData, std::int32_t filterBias,
                                               std::int32_t dataWidth, std::int32_t dataHeight,
                                               std::int32_t dataChannels);

template<>
bool CDataBlob<unsigned char>::setDataFrom3x3S2P1to1x1S1P0FromImage(const unsigned char* imageData,
                                                                    std::int32_t imageWidth,
                                                                    std::int32_t imageHeight,
                                                                    std::int32_t imageChannels,
                                                                    std::int32_t rowStep);

extern template class CDataBlob<unsigned char>;
extern template class CDataBlob<signed char>;
extern template class CDataBlob<std::int32_t>;
extern template class CDataBlob<float>;
