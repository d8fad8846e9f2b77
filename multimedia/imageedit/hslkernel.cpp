#include "multimedia/imageedit/hslkernel.h"

#include <cstring>

namespace ImageEdit {
namespace {

/// The types of `lanes` pixels side by side; the compiler maps them to what the processor has.
template<int lanes>
struct Lanes
{
    using Reals [[gnu::vector_size(lanes * sizeof(double))]] = double;
    using Masks [[gnu::vector_size(lanes * sizeof(double))]] = int64_t; ///< a comparison of Reals: -1 or 0
    using Words [[gnu::vector_size(lanes * sizeof(int32_t))]] = int32_t;
    using Pixels [[gnu::vector_size(lanes * sizeof(uint32_t))]] = uint32_t;
};

/// The colour conversions of QColor, step by step.
///
/// QColor keeps its components as 16-bit integers and its hue in hundredths of a degree, so every step that
/// goes through one of them rounds there. The order of the floating-point operations is QColor's as well; any
/// other, or a fused multiply-add, would round differently.
///
/// Functions take and give vectors by reference: what passes them in registers depends on the vector unit.
template<int lanes>
struct Adjustment
{
    using Reals = typename Lanes<lanes>::Reals;
    using Masks = typename Lanes<lanes>::Masks;
    using Words = typename Lanes<lanes>::Words;
    using Pixels = typename Lanes<lanes>::Pixels;

    static constexpr double kFull = 65535.0;
    static constexpr double kFullHue = 36000.0;

    HslOffsets offsets;

    /// qRound, for what is above -0.5.
    [[gnu::always_inline]] static void round(Reals& value)
    {
        const Words whole = __builtin_convertvector(value + 0.5, Words);
        value = __builtin_convertvector(whole, Reals);
    }

    /// The component whose fraction of the full scale is `value`, moved by `offset`; again as such a
    /// fraction.
    [[gnu::always_inline]] static void move(Reals& value, double offset, double full)
    {
        value += offset;
        value = value > 1.0 ? 1.0 + Reals{} : value;
        value = value < 0.0 ? Reals{} : value;
        value *= full;
        round(value);
        value /= full;
    }

    [[gnu::always_inline]] static void readByte(Reals& value, const Pixels& pixels, int shift)
    {
        const Pixels bytes = pixels >> shift & 0xff;
        value = __builtin_convertvector((Words)bytes, Reals) / 255.0;
    }

    /// Sets one byte to the height of the colour wheel's ramp between `low` and `high` at `turn`.
    [[gnu::always_inline]] static void writeByte(Pixels& pixels, int shift, const Reals& turn,
                                                 const Reals& low, const Reals& high)
    {
        const Reals t = turn < 0.0 ? turn + 1.0 : (turn > 1.0 ? turn - 1.0 : turn);
        Reals value = t * 3.0 < 2.0 ? low + (high - low) * (2.0 / 3.0 - t) * 6.0 : low;
        value = t * 2.0 < 1.0 ? high : value;
        value = t * 6.0 < 1.0 ? low + (high - low) * (t * 6.0) : value;
        // From 16 bits to 8: a division by 257, rounded.
        Pixels component = (Pixels) __builtin_convertvector(value * kFull + 0.5, Words) + 128;
        component = (component - (component >> 8)) >> 8;
        pixels |= component << shift;
    }

    [[gnu::always_inline]] void operator()(Pixels& pixels) const
    {
        Reals red;
        Reals green;
        Reals blue;
        readByte(red, pixels, 16);
        readByte(green, pixels, 8);
        readByte(blue, pixels, 0);

        Reals max = red > green ? red : green;
        max = max > blue ? max : blue;
        Reals min = red < green ? red : green;
        min = min < blue ? min : blue;
        const Reals delta = max - min;
        const Masks grey = max == min;
        const Masks red_leads = red == max;
        const Masks green_leads = green == max;

        const Reals sector = red_leads ? Reals{} : (green_leads ? 2.0 + Reals{} : 4.0 + Reals{});
        const Reals span = red_leads ? green - blue : (green_leads ? blue - red : red - green);
        Reals hue = (sector + span / (grey ? 1.0 + Reals{} : delta)) * 60.0;
        hue = (hue < 0.0 ? hue + 360.0 : hue) * 100.0;
        round(hue);
        hue = grey ? Reals{} - 1.0 : hue / kFullHue;
        Reals saturation = delta / (grey ? 1.0 + Reals{} : max) * kFull;
        round(saturation);
        saturation /= kFull;
        Reals lightness = (max + min) * 0.5 * kFull;
        round(lightness);
        lightness /= kFull;

        move(hue, offsets.hue, kFullHue);
        hue = hue == 1.0 ? Reals{} : hue;
        move(saturation, offsets.saturation, kFull);
        move(lightness, offsets.lightness, kFull);

        const Reals high = lightness < 0.5 ? lightness * (1.0 + saturation)
                                           : lightness + saturation - lightness * saturation;
        const Reals low = 2.0 * lightness - high;
        pixels &= 0xff000000;
        writeByte(pixels, 16, hue + 1.0 / 3.0, low, high);
        writeByte(pixels, 8, hue, low, high);
        writeByte(pixels, 0, hue - 1.0 / 3.0, low, high);
    }
};

template<int lanes>
[[gnu::always_inline]] inline void adjustAll(uint32_t* pixels, size_t count, const HslOffsets& offsets)
{
    const Adjustment<lanes> adjust{offsets};
    typename Lanes<lanes>::Pixels block{};
    for (; count >= lanes; count -= lanes, pixels += lanes) {
        std::memcpy(&block, pixels, sizeof block);
        adjust(block);
        std::memcpy(pixels, &block, sizeof block);
    }
    std::memcpy(&block, pixels, count * sizeof *pixels);
    adjust(block);
    std::memcpy(pixels, &block, count * sizeof *pixels);
}

void adjustPortable(uint32_t* pixels, size_t count, const HslOffsets& offsets)
{
    adjustAll<2>(pixels, count, offsets);
}

#ifdef __x86_64__
[[gnu::target("avx2")]] void adjustAvx2(uint32_t* pixels, size_t count, const HslOffsets& offsets)
{
    adjustAll<4>(pixels, count, offsets);
}

[[gnu::target("avx512f,avx512dq,avx512vl")]] void adjustAvx512(uint32_t* pixels, size_t count,
                                                               const HslOffsets& offsets)
{
    adjustAll<8>(pixels, count, offsets);
}
#endif

std::vector<HslKernel> supportedKernels()
{
    std::vector<HslKernel> kernels;
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl"))
        kernels.push_back({"avx512", adjustAvx512});
    if (__builtin_cpu_supports("avx2"))
        kernels.push_back({"avx2", adjustAvx2});
#endif
    kernels.push_back({"portable", adjustPortable});
    return kernels;
}

} // namespace

const std::vector<HslKernel>& hslKernels()
{
    static const std::vector<HslKernel> kernels = supportedKernels();
    return kernels;
}

} // namespace ImageEdit
