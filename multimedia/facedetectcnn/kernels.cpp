#include "multimedia/facedetectcnn/kernels.h"

#include "multimedia/facedetectcnn/kernelchoice.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

using facedetectcnn::KernelFamily;
using facedetectcnn::kernelFamily;

template<>
bool CDataBlob<unsigned char>::setDataFrom3x3S2P1to1x1S1P0FromImage(const unsigned char* imageData,
                                                                    std::int32_t imageWidth,
                                                                    std::int32_t imageHeight,
                                                                    std::int32_t imageChannels,
                                                                    std::int32_t rowStep)
{
    constexpr std::int32_t kUnfolded = 27;
    if (!imageData) {
        std::fputs("The input image data is null.\n", stderr);
        return false;
    }
    if (imageChannels != 3) {
        std::fputs("The input image must be a 3-channel RGB image.\n", stderr);
        return false;
    }
    if (!create((imageWidth + 1) / 2, (imageHeight + 1) / 2, kUnfolded))
        return false;

    const KernelFamily& family = kernelFamily();
    for (std::int32_t y = 0; y < height; ++y) {
        std::array<const unsigned char*, 3> rows = {};
        for (std::int32_t i = 0; i < 3; ++i) {
            const std::int32_t imageRow = 2 * y - 1 + i;
            if (imageRow >= 0 && imageRow < imageHeight)
                rows[i] = imageData + static_cast<std::ptrdiff_t>(imageRow) * rowStep;
        }
        family.unfoldRow(rows.data(), imageWidth, pixel(0, y));
    }
    scale = 1.0F;
    bias = 1;
    return true;
}

bool maxpooling2x2S2(const CDataBlob<unsigned char>& input, CDataBlob<unsigned char>* output)
{
    if (!input.data) {
        std::fputs("maxpooling2x2S2: The input data is null.\n", stderr);
        return false;
    }
    const std::int32_t width = input.width / 2;
    const std::int32_t height = input.height / 2;
    if (width < 1 || height < 1) {
        std::fprintf(stderr, "maxpooling2x2S2: The size of the output is not correct. (%d, %d).\n", width,
                     height);
        return false;
    }
    if (!output->create(width, height, input.channels))
        return false;
    output->scale = input.scale;
    output->bias = input.bias;

    const KernelFamily& family = kernelFamily();
    for (std::int32_t y = 0; y < height; ++y)
        family.poolRow(input.pixel(0, 2 * y), input.pixel(0, 2 * y + 1), output->pixel(0, y), width,
                       input.channelStep);
    return true;
}

template<class T>
bool blob2vector(const CDataBlob<T>& input, CDataBlob<T>* output)
{
    if (!output || !input.data) {
        std::fputs("blob2vector: The input or output data is null.\n", stderr);
        return false;
    }
    // A count that no blob can hold is left to `create` to refuse.
    const std::int64_t count = static_cast<std::int64_t>(input.width) * input.height * input.channels;
    const std::int64_t limit = std::numeric_limits<std::int32_t>::max();
    if (!output->create(1, 1, static_cast<std::int32_t>(std::min(count, limit))))
        return false;
    output->scale = input.scale;
    output->bias = input.bias;

    T* target = output->data;
    for (std::int32_t y = 0; y < input.height; ++y) {
        for (std::int32_t x = 0; x < input.width; ++x, target += input.channels)
            std::memcpy(target, input.pixel(x, y), sizeof(T) * input.channels);
    }
    return true;
}

template bool blob2vector(const CDataBlob<signed char>& input, CDataBlob<signed char>* output);
template bool blob2vector(const CDataBlob<std::int32_t>& input, CDataBlob<std::int32_t>* output);
template bool blob2vector(const CDataBlob<float>& input, CDataBlob<float>* output);

template<class T>
bool concat4(const CDataBlob<T>& first, const CDataBlob<T>& second, const CDataBlob<T>& third,
             const CDataBlob<T>& fourth, CDataBlob<T>* output)
{
    const std::array<const CDataBlob<T>*, 4> inputs = {&first, &second, &third, &fourth};
    std::int32_t channels = 0;
    for (const CDataBlob<T>* input : inputs) {
        if (!input->data) {
            std::fputs("concat4: The input data is null.\n", stderr);
            return false;
        }
        channels += input->channels;
    }
    for (const CDataBlob<T>* input : inputs) {
        if (input->width != first.width || input->height != first.height) {
            std::fputs("concat4: The three inputs must have the same size.\n", stderr);
            return false;
        }
    }
    if (first.width < 1 || first.height < 1 || channels < 1) {
        std::fprintf(stderr, "concat4: The size of the output is not correct. (%d, %d, %d).\n", first.width,
                     first.height, channels);
        return false;
    }
    if (!output->create(first.width, first.height, channels))
        return false;

    for (std::int32_t y = 0; y < first.height; ++y) {
        for (std::int32_t x = 0; x < first.width; ++x) {
            T* target = output->pixel(x, y);
            for (const CDataBlob<T>* input : inputs) {
                std::memcpy(target, input->pixel(x, y), sizeof(T) * input->channels);
                target += input->channels;
            }
        }
    }
    return true;
}

template bool concat4(const CDataBlob<float>& first, const CDataBlob<float>& second,
                      const CDataBlob<float>& third, const CDataBlob<float>& fourth,
                      CDataBlob<float>* output);

bool convertInt2Float(const CDataBlob<std::int32_t>& input, CDataBlob<float>* output)
{
    if (!output || !input.data) {
        std::fputs("convertInt2Float: The input or output data is null.\n", stderr);
        return false;
    }
    if (!output->create(input.width, input.height, input.channels))
        return false;

    const float inverse = 1.0F / input.scale;
    for (std::int32_t y = 0; y < input.height; ++y) {
        for (std::int32_t x = 0; x < input.width; ++x) {
            const std::int32_t* source = input.pixel(x, y);
            float* target = output->pixel(x, y);
            for (std::int32_t channel = 0; channel < input.channels; ++channel)
                target[channel] = static_cast<float>(source[channel]) * inverse;
        }
    }
    output->scale = 1.0F;
    output->bias = truncateToInt(std::roundf(inverse * static_cast<float>(input.bias)));
    return true;
}
