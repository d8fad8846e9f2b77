#pragma once

#include "multimedia/audiorecorder/effect.h"

#include <memory>

namespace soundtouch {
class SoundTouch;
}

namespace multimedia {

/// Moves the pitch of a voice and keeps its speed.
///
/// The sound is stretched in time by overlapping similar stretches of it (WSOLA: W. Verhelst and M. Roelands,
/// "An overlap-add technique based on waveform similarity", 1993) and resampled back.
class PitchShifter : public Effect
{
public:
    /// @param pitch  factor on every frequency
    PitchShifter(int sample_rate, float pitch);
    ~PitchShifter() override;

    void process(std::vector<float>& block) override;

private:
    const std::unique_ptr<soundtouch::SoundTouch> shifter;
};

} // namespace multimedia
