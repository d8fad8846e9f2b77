#pragma once

#include "multimedia/facedetectcnn/kernelfamily.h"

#include <immintrin.h>

/// @file
/// The loops that all x86 families share, for sources compiled with AVX2.

namespace facedetectcnn {
namespace {

/// 32 values to bytes. The lanes of the packs are put in order at the end.
inline __m256i requantise32(const std::int32_t* values, __m256 ratio)
{
    const __m256 rounding = _mm256_set1_ps(0.499F);
    __m256i parts[4];
    for (int i = 0; i < 4; ++i) {
        const __m256i value = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values) + i);
        const __m256 positive = _mm256_cvtepi32_ps(_mm256_max_epi32(value, _mm256_setzero_si256()));
        parts[i] = _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(positive, ratio), rounding));
    }
    const __m256i bytes =
        _mm256_packus_epi16(_mm256_packs_epi32(parts[0], parts[1]), _mm256_packs_epi32(parts[2], parts[3]));
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

inline void requantise(const std::int32_t* values, unsigned char* bytes, std::size_t count, float ratio)
{
    const __m256 ratios = _mm256_set1_ps(ratio);
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes + i), requantise32(values + i, ratios));
    if (i < count)
        kScalarKernels.requantise(values + i, bytes + i, count - i, ratio);
}

inline __m128i load16(const unsigned char* bytes)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

inline void poolRow(const unsigned char* upper, const unsigned char* lower, unsigned char* output,
                    std::int32_t pixels, std::int32_t step)
{
    for (std::int32_t x = 0; x < pixels; ++x, upper += 2 * step, lower += 2 * step, output += step) {
        for (std::int32_t i = 0; i < step; i += 16) {
            const __m128i above = _mm_max_epu8(load16(upper + i), load16(upper + step + i));
            const __m128i below = _mm_max_epu8(load16(lower + i), load16(lower + step + i));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(output + i), _mm_max_epu8(above, below));
        }
    }
}

/// Nine bytes of each row come to stand one behind the other. Each row is read 16 bytes at a time, so the
/// last windows, whose 16 bytes could reach beyond the row, go byte by byte.
inline void unfoldRow(const unsigned char* const* rows, std::int32_t width, unsigned char* output)
{
    constexpr char kNone = -1;
    const __m128i middle_low =
        _mm_setr_epi8(kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone, 0, 1, 2, 3, 4, 5, 6);
    const __m128i middle_high = _mm_setr_epi8(7, 8, kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone,
                                              kNone, kNone, kNone, kNone, kNone, kNone);
    const __m128i lower_high =
        _mm_setr_epi8(kNone, kNone, 0, 1, 2, 3, 4, 5, 6, 7, 8, kNone, kNone, kNone, kNone, kNone);
    const __m128i upper_low =
        _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, kNone, kNone, kNone, kNone, kNone, kNone, kNone);
    const auto load = [rows](int row, std::ptrdiff_t offset) {
        return rows[row] ? load16(rows[row] + offset) : _mm_setzero_si128();
    };

    std::int32_t column = 0;
    if (width > 0) {
        unfoldPixel(rows, width, column, output);
        column += 2;
        output += 32;
    }
    for (; (static_cast<std::ptrdiff_t>(column) - 1) * 3 + 16 <= static_cast<std::ptrdiff_t>(width) * 3;
         column += 2, output += 32) {
        const std::ptrdiff_t offset = (static_cast<std::ptrdiff_t>(column) - 1) * 3;
        const __m128i upper = load(0, offset);
        const __m128i middle = load(1, offset);
        const __m128i lower = load(2, offset);
        _mm_storeu_si128(
            reinterpret_cast<__m128i*>(output),
            _mm_or_si128(_mm_shuffle_epi8(upper, upper_low), _mm_shuffle_epi8(middle, middle_low)));
        _mm_storeu_si128(
            reinterpret_cast<__m128i*>(output + 16),
            _mm_or_si128(_mm_shuffle_epi8(middle, middle_high), _mm_shuffle_epi8(lower, lower_high)));
    }
    for (; column < width; column += 2, output += 32)
        unfoldPixel(rows, width, column, output);
}

} // namespace
} // namespace facedetectcnn
