#pragma once

#include "multimedia/facedetectcnn/kernels_x86.h"

/// @file
/// The loops that the families with AVX-512 share.

namespace facedetectcnn {
namespace {

inline void requantise512(const std::int32_t* values, unsigned char* bytes, std::size_t count, float ratio)
{
    constexpr std::size_t kAtOnce = 16;
    const __m512 ratios = _mm512_set1_ps(ratio);
    const __m512 rounding = _mm512_set1_ps(0.499F);
    std::size_t i = 0;
    for (; i + kAtOnce <= count; i += kAtOnce) {
        const __m512i value = _mm512_max_epi32(_mm512_loadu_si512(values + i), _mm512_setzero_si512());
        const __m512 real = _mm512_add_ps(_mm512_mul_ps(_mm512_cvtepi32_ps(value), ratios), rounding);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + i),
                         _mm512_cvtepi32_epi8(_mm512_cvttps_epi32(real)));
    }
    if (i < count)
        kScalarKernels.requantise(values + i, bytes + i, count - i, ratio);
}

} // namespace
} // namespace facedetectcnn
