#include "multimedia/imageedit/hslkernel.h"

#include <algorithm>
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
    using Wide [[gnu::vector_size(lanes * sizeof(uint64_t))]] = uint64_t;
};

/// The scale of a component that is kept as a whole number from 0 to `full`: what turns one into the fraction
/// of it without a division, to the bit.
///
/// The reciprocal is cut in two. By the first half, of 36 bits, a number of 16 bits is multiplied exactly;
/// the second adds what is missing, and the sum is rounded once, as a quotient is.
struct Scale
{
    double full;
    double head;
    double tail;

    constexpr explicit Scale(int full)
        : full(full)
        , head(headOf(1.0 / full))
        , tail((1.0 - this->full * head) / this->full)
    {}

    template<typename Real>
    [[gnu::always_inline]] constexpr void toFraction(Real& whole) const
    {
        whole = whole * head + whole * tail;
    }

    /// The upper 36 of 53 bits. Source: T. J. Dekker, A floating-point technique for extending the available
    /// precision, 1971.
    static constexpr double headOf(double value)
    {
        const double shifted = value * ((1 << 17) + 1);
        return shifted - (shifted - value);
    }

    static constexpr bool equalsDivision(int full)
    {
        const Scale scale(full);
        for (int whole = 0; whole <= full; ++whole) {
            double fraction = whole;
            scale.toFraction(fraction);
            if (fraction != double(whole) / double(full))
                return false;
        }
        return true;
    }
};

constexpr int kFullByte = 255;
constexpr int kFull = 65535;    ///< of QColor's saturation and lightness
constexpr int kFullHue = 36000; ///< and of its hue
static_assert(Scale::equalsDivision(kFullByte) && Scale::equalsDivision(kFull) &&
              Scale::equalsDivision(kFullHue));
constexpr Scale kByteScale(kFullByte);
constexpr Scale kScale(kFull);
constexpr Scale kHueScale(kFullHue);

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
    using Wide = typename Lanes<lanes>::Wide;

    static constexpr double kWholeFrom = 0x1p52; ///< from here on doubles are whole numbers
    static constexpr uint64_t kWholeFromBits =
        0x4330'0000'0000'0000; ///< its bits, in which the number stands last

    /// A sixth of the wheel, less than half a step of the hue too short: of two neighbouring hues the upper
    /// one is behind it when it is a sixth, however it was rounded.
    static constexpr double kSixth = (6000 - 0.25) / kFullHue;

    HslOffsets offsets;

    /// qRound, for what is above -0.5. Conversions to integers and back cost more.
    [[gnu::always_inline]] static void round(Reals& value)
    {
        value += 0.5;
        const Reals nearest = value + kWholeFrom - kWholeFrom;
        value = nearest - (nearest > value ? 1.0 + Reals{} : Reals{});
    }

    /// The component whose fraction of the full scale is `value`, moved by `offset`; again as such a
    /// fraction.
    [[gnu::always_inline]] static void move(Reals& value, double offset, const Scale& scale)
    {
        value += offset;
        value = value > 1.0 ? 1.0 + Reals{} : value;
        value = value < 0.0 ? Reals{} : value;
        value *= scale.full;
        round(value);
        scale.toFraction(value);
    }

    [[gnu::always_inline]] static void readByte(Reals& value, const Wide& pixels, int shift)
    {
        value = (Reals)((pixels >> shift & 0xff) | kWholeFromBits) - kWholeFrom;
        kByteScale.toFraction(value);
    }

    [[gnu::always_inline]] static void writeByte(Pixels& pixels, int shift, const Reals& value)
    {
        // From 16 bits to 8: a division by 257, rounded.
        Pixels component = (Pixels) __builtin_convertvector(value * kScale.full + 0.5, Words) + 128;
        component = (component - (component >> 8)) >> 8;
        pixels |= component << shift;
    }

    /// Hue, saturation and lightness as QColor reads them; the first two are those of HSV.
    [[gnu::always_inline]] static void readColour(const Pixels& pixels, Reals& hue, Reals& saturation,
                                                  Reals& lightness)
    {
        Reals red;
        Reals green;
        Reals blue;
        const Wide wide = __builtin_convertvector(pixels, Wide);
        readByte(red, wide, 16);
        readByte(green, wide, 8);
        readByte(blue, wide, 0);

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
        hue = (sector + span / (grey ? 1.0 + Reals{} : delta)) * 60.0;
        hue = (hue < 0.0 ? hue + 360.0 : hue) * 100.0;
        round(hue);
        kHueScale.toFraction(hue);
        hue = grey ? Reals{} - 1.0 : hue;
        saturation = delta / (grey ? 1.0 + Reals{} : max) * kScale.full;
        round(saturation);
        kScale.toFraction(saturation);
        lightness = (max + min) * (0.5 * kScale.full);
        round(lightness);
        kScale.toFraction(lightness);
    }

    /// The colours of HSL. Round the wheel of hues one of the three channels is at the top, one at the
    /// bottom, and one on its way between the two.
    [[gnu::always_inline]] static void writeColour(Pixels& pixels, const Reals& hue, const Reals& saturation,
                                                   const Reals& lightness)
    {
        const Reals high = lightness < 0.5 ? lightness * (1.0 + saturation)
                                           : lightness + saturation - lightness * saturation;
        const Reals low = 2.0 * lightness - high;

        // Green, red and blue are on their way in turn, in each half of the wheel. Who goes up in the first
        // half goes down in the second.
        const Masks second_half = hue >= 0.5;
        const Reals part = second_half ? hue - 0.5 : hue;
        const Masks green_goes = part < kSixth;
        const Masks blue_goes = part >= 2.0 * kSixth;
        Reals turn = green_goes ? hue : (blue_goes ? hue - 1.0 / 3.0 : hue + 1.0 / 3.0);
        turn = turn >= 1.0 ? turn - 1.0 : turn;
        Reals middle = part - 1.5 * kSixth;
        middle = (middle < 0.0 ? -middle : middle) - 0.5 * kSixth;
        middle = second_half ? -middle : middle;
        const Masks falls = middle < 0.0;
        const Reals way = (high - low) * (falls ? 2.0 / 3.0 - turn : turn * 6.0);
        const Reals between = low + (falls ? way * 6.0 : way);

        const Reals start = second_half ? low : high;
        const Reals end = second_half ? high : low;
        pixels &= 0xff000000;
        writeByte(pixels, 16, green_goes ? start : (blue_goes ? end : between));
        writeByte(pixels, 8, green_goes ? between : start);
        writeByte(pixels, 0, blue_goes ? between : end);
    }

    [[gnu::always_inline]] void operator()(Pixels& pixels) const
    {
        Reals hue;
        Reals saturation;
        Reals lightness;
        readColour(pixels, hue, saturation, lightness);
        move(hue, offsets.hue, kHueScale);
        hue = hue == 1.0 ? Reals{} : hue;
        move(saturation, offsets.saturation, kScale);
        move(lightness, offsets.lightness, kScale);
        writeColour(pixels, hue, saturation, lightness);
    }
};

/// Of each pixel one step waits for the other, so `blocks` of them are on their way together.
template<int lanes, int blocks>
[[gnu::always_inline]] inline void adjustAll(uint32_t* pixels, size_t count, const HslOffsets& offsets)
{
    const Adjustment<lanes> adjust{offsets};
    using Pixels = typename Lanes<lanes>::Pixels;
    constexpr size_t kTogether = size_t(lanes) * blocks;
    for (; count >= kTogether; count -= kTogether, pixels += kTogether) {
        Pixels group[blocks];
        std::memcpy(group, pixels, sizeof group);
#pragma GCC unroll 3
        for (Pixels& block : group)
            adjust(block);
        std::memcpy(pixels, group, sizeof group);
    }
    while (count > 0) {
        const size_t part = std::min<size_t>(count, lanes);
        Pixels block{};
        std::memcpy(&block, pixels, part * sizeof *pixels);
        adjust(block);
        std::memcpy(pixels, &block, part * sizeof *pixels);
        pixels += part;
        count -= part;
    }
}

void adjustPortable(uint32_t* pixels, size_t count, const HslOffsets& offsets)
{
    adjustAll<2, 2>(pixels, count, offsets);
}

#ifdef __x86_64__
[[gnu::target("avx2")]] void adjustAvx2(uint32_t* pixels, size_t count, const HslOffsets& offsets)
{
    adjustAll<4, 3>(pixels, count, offsets);
}

[[gnu::target("avx512f,avx512dq,avx512vl")]] void adjustAvx512(uint32_t* pixels, size_t count,
                                                               const HslOffsets& offsets)
{
    adjustAll<8, 3>(pixels, count, offsets);
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
