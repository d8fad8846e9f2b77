#include "multimedia/audiorecorder/tremolo.h"

#include <algorithm>
#include <cmath>

namespace multimedia {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

Tremolo::Tremolo(int sample_rate, Settings settings)
    : step(double(settings.frequency_hz) / sample_rate)
    , depth(std::clamp(settings.depth, 0.0F, 1.0F))
    , rise((1.0 + std::clamp(settings.skew, -1.0F, 1.0F)) / 2.0)
{}

void Tremolo::process(std::vector<float>& block)
{
    for (size_t i = 0; i + 1 < block.size(); i += 2) {
        const float factor = gain();
        block[i] *= factor;
        block[i + 1] *= factor;
        phase += step;
        phase -= std::floor(phase);
    }
}

float Tremolo::gain() const
{
    const double bent = phase < rise ? 0.5 * phase / rise : 0.5 + 0.5 * (phase - rise) / (1.0 - rise);
    const double level = 0.5 - 0.5 * std::cos(2.0 * kPi * bent);
    return float(1.0 - depth * (1.0 - level));
}

} // namespace multimedia
