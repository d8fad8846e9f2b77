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

constexpr std::size_t kFirstHead = 16;

template<std::size_t Sizes>
void runHeads(const Activation& source, std::size_t index, ImageSize image,
              const std::array<float, Sizes>& sizes, Branch* branch)
{
    const std::size_t head = kFirstHead + 2 * index;
    const std::int32_t step = 8 << index;
    convolution(source, g_pFilters[head], &branch->locations);
    convolution(source, g_pFilters[head + 1], &branch->confidences);
    priorbox(source, image.width, image.height, step, static_cast<std::int32_t>(Sizes), sizes.data(),
             &branch->priors);
}

} // namespace

void runNetwork(const unsigned char* image, std::int32_t width, std::int32_t height, std::int32_t step,
                Branches* branches)
{
    if (!param_initialized)
        init_parameters();

    Activation input;
    input.setDataFrom3x3S2P1to1x1S1P0FromImage(image, width, height, 3, step);

    std::array<Activation, 16> conv;
    std::array<Activation, 5> pool;
    convolution_relu(input, g_pFilters[0], &conv[0]);
    convolution_relu(conv[0], g_pFilters[1], &conv[1]);
    maxpooling2x2S2(conv[1], &pool[0]);
    convolution_relu(pool[0], g_pFilters[2], &conv[2]);
    convolution_relu(conv[2], g_pFilters[3], &conv[3]);
    maxpooling2x2S2(conv[3], &pool[1]);
    convolution_relu(pool[1], g_pFilters[4], &conv[4]);
    convolution_relu(conv[4], g_pFilters[5], &conv[5]);
    convolution_relu(conv[5], g_pFilters[6], &conv[6]);
    maxpooling2x2S2(conv[6], &pool[2]);
    convolution_relu(pool[2], g_pFilters[7], &conv[7]);
    convolution_relu(conv[7], g_pFilters[8], &conv[8]);
    convolution_relu(conv[8], g_pFilters[9], &conv[9]);
    maxpooling2x2S2(conv[9], &pool[3]);
    convolution_relu(pool[3], g_pFilters[10], &conv[10]);
    convolution_relu(conv[10], g_pFilters[11], &conv[11]);
    convolution_relu(conv[11], g_pFilters[12], &conv[12]);
    maxpooling2x2S2(conv[12], &pool[4]);
    convolution_relu(pool[4], g_pFilters[13], &conv[13]);
    convolution_relu(conv[13], g_pFilters[14], &conv[14]);
    convolution_relu(conv[14], g_pFilters[15], &conv[15]);

    const ImageSize size = {width, height};
    runHeads<3>(conv[6], 0, size, {10.0F, 16.0F, 24.0F}, &(*branches)[0]);
    runHeads<2>(conv[9], 1, size, {32.0F, 48.0F}, &(*branches)[1]);
    runHeads<2>(conv[12], 2, size, {64.0F, 96.0F}, &(*branches)[2]);
    runHeads<3>(conv[15], 3, size, {128.0F, 192.0F, 256.0F}, &(*branches)[3]);
}

} // namespace facedetectcnn
