#include "bench/int8peak.h"

#ifdef __x86_64__

#    include <immintrin.h>

#    include <algorithm>
#    include <chrono>

namespace {

constexpr int kRounds = 20000;
constexpr int kChains = 16; ///< enough that no product waits for the one before

__attribute__((target("avx512f,avx512vnni"))) void multiply(int rounds)
{
    __m512i sums[kChains];
    for (__m512i& sum : sums)
        sum = _mm512_setzero_si512();
    const __m512i bytes = _mm512_set1_epi8(3);
    for (int i = 0; i < rounds; ++i) {
#    pragma GCC unroll 16
        for (__m512i& sum : sums) // NOLINT(modernize-loop-convert): unrolled into registers
            __asm__ volatile("vpdpbusd %1, %1, %0" : "+v"(sum) : "v"(bytes));
    }
}

} // namespace

double measureInt8Peak()
{
    using Clock = std::chrono::steady_clock;
    if (__builtin_cpu_supports("avx512vnni") == 0)
        return 0.0;
    double best = 1e9;
    for (int i = 0; i < 20; ++i) {
        const Clock::time_point start = Clock::now();
        multiply(kRounds);
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return 64.0 * kChains * kRounds / best;
}

#else

double measureInt8Peak()
{
    return 0.0;
}

#endif
