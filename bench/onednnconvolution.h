#pragma once

#include <dnnl.hpp>

#include <cstdint>

/// One convolution of unsigned bytes by signed bytes into 32-bit sums with biases, stride 1, done by oneDNN
/// on one thread in the layouts it likes best. Memory holds whatever it was given: the time does not depend
/// on it.
class OneDnnConvolution
{
public:
    OneDnnConvolution(std::int32_t width, std::int32_t height, std::int32_t channels, std::int32_t kernelSize,
                      std::int32_t filterCount);

    void run();

private:
    dnnl::engine engine;
    dnnl::stream stream;
    dnnl::convolution_forward convolution;
    dnnl::memory source;
    dnnl::memory weights;
    dnnl::memory biases;
    dnnl::memory output;
};
