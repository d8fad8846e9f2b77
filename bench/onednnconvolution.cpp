#include "bench/onednnconvolution.h"

#include <omp.h>

#include <cstring>

OneDnnConvolution::OneDnnConvolution(std::int32_t width, std::int32_t height, std::int32_t channels,
                                     std::int32_t kernelSize, std::int32_t filterCount)
    : engine(dnnl::engine::kind::cpu, 0)
    , stream(engine)
{
    using dnnl::memory;
    omp_set_num_threads(1);
    const memory::dim pad = kernelSize / 2;
    const auto any = [](const memory::dims& sizes, memory::data_type type) {
        return memory::desc(sizes, type, memory::format_tag::any);
    };
    const dnnl::convolution_forward::desc description(
        dnnl::prop_kind::forward_inference, dnnl::algorithm::convolution_direct,
        any({1, channels, height, width}, memory::data_type::u8),
        any({filterCount, channels, kernelSize, kernelSize}, memory::data_type::s8),
        any({filterCount}, memory::data_type::s32),
        any({1, filterCount, height, width}, memory::data_type::s32), {1, 1}, {pad, pad}, {pad, pad});
    const dnnl::convolution_forward::primitive_desc primitive(description, engine);
    convolution = dnnl::convolution_forward(primitive);
    source = memory(primitive.src_desc(), engine);
    weights = memory(primitive.weights_desc(), engine);
    biases = memory(primitive.bias_desc(), engine);
    output = memory(primitive.dst_desc(), engine);
    for (const memory& part : {source, weights, biases, output})
        std::memset(part.get_data_handle(), 1, part.get_desc().get_size());
}

void OneDnnConvolution::run()
{
    convolution.execute(stream, {{DNNL_ARG_SRC, source},
                                 {DNNL_ARG_WEIGHTS, weights},
                                 {DNNL_ARG_BIAS, biases},
                                 {DNNL_ARG_DST, output}});
    stream.wait();
}
