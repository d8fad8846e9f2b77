#include "multimedia/facedetectcnn/network.h"

#include "multimedia/facedetectcnn/detectionoutput.h"
#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/kernels.h"

namespace facedetectcnn {
namespace {

using Activation = CDataBlob<unsigned char>;

struct ImageSize
{
    std::int32_t width;
    std::int32_t height;
};

Activation convolved(const Activation& input, std::size_t layer)
{
    Activation output;
    convolution_relu(input, g_pFilters[layer], &output);
    return output;
}

Activation pooled(const Activation& input)
{
    Activation output;
    maxpooling2x2S2(input, &output);
    return output;
}

template<std::size_t Sizes>
void runHeads(const Activation& source, std::size_t index, ImageSize image,
              const std::array<float, Sizes>& sizes, Branch* branch)
{
    const std::size_t head = kFirstHead + 2 * index;
    const std::int32_t step = 8 << index;
    convolutionPair(source, g_pFilters[head], g_pFilters[head + 1], &branch->locations, &branch->confidences);
    priorbox(source, image.width, image.height, step, static_cast<std::int32_t>(Sizes), sizes.data(),
             &branch->priors);
}

} // namespace

void runNetwork(const unsigned char* image, std::int32_t width, std::int32_t height, std::int32_t step,
                Branches* branches)
{
    if (!param_initialized)
        init_parameters();

    // What a stage has used up is freed at once, so that the next takes memory that is still in the cache and
    // the allocator has no reason to give it back to the system.
    Activation blob;
    blob.setDataFrom3x3S2P1to1x1S1P0FromImage(image, width, height, 3, step);
    blob = convolved(blob, 0);
    blob = convolved(blob, 1);
    blob = pooled(blob);
    blob = convolved(blob, 2);
    blob = convolved(blob, 3);
    blob = pooled(blob);
    blob = convolved(blob, 4);
    blob = convolved(blob, 5);
    const Activation source1 = convolved(blob, 6);
    blob = pooled(source1);
    blob = convolved(blob, 7);
    blob = convolved(blob, 8);
    const Activation source2 = convolved(blob, 9);
    blob = pooled(source2);
    blob = convolved(blob, 10);
    blob = convolved(blob, 11);
    const Activation source3 = convolved(blob, 12);
    blob = pooled(source3);
    blob = convolved(blob, 13);
    blob = convolved(blob, 14);
    const Activation source4 = convolved(blob, 15);

    const ImageSize size = {width, height};
    runHeads<3>(source1, 0, size, {10.0F, 16.0F, 24.0F}, &(*branches)[0]);
    runHeads<2>(source2, 1, size, {32.0F, 48.0F}, &(*branches)[1]);
    runHeads<2>(source3, 2, size, {64.0F, 96.0F}, &(*branches)[2]);
    runHeads<3>(source4, 3, size, {128.0F, 192.0F, 256.0F}, &(*branches)[3]);
}

} // namespace facedetectcnn
