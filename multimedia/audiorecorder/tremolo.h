#pragma once

#include "multimedia/audiorecorder/effect.h"

namespace multimedia {

/// Modulates the loudness with a skewed sine.
///
/// The gain falls from 1 to 1 - depth and rises again once per period. `skew` bends time within the period:
/// the gain is back at its top after (1 + skew) / 2 of the period following its lowest point, so that 0 gives
/// a sine and values near 1 a slow rise with a fast fall. The bent phase is that of the usual phase
/// distortion oscillator with one knee.
class Tremolo : public Effect
{
public:
    struct Settings
    {
        float frequency_hz;
        float depth; ///< 0 to 1; more counts as 1
        float skew;  ///< -1 to 1
    };

    Tremolo(int sample_rate, Settings settings);

    void process(std::vector<float>& block) override;

private:
    float gain() const;

    const double step;  ///< periods per frame
    const double depth; ///< 0 to 1
    const double rise;  ///< share of the period in which the gain rises
    double phase = 0;   ///< of the period, 0 to 1; the gain is lowest at 0
};

} // namespace multimedia
