#include "multimedia/audiorecorder/pitchshifter.h"

#include <soundtouch/SoundTouch.h>

namespace multimedia {

static_assert(sizeof(soundtouch::SAMPLETYPE) == sizeof(float), "SoundTouch is built for float samples");

PitchShifter::PitchShifter(int sample_rate, float pitch)
    : shifter(std::make_unique<soundtouch::SoundTouch>())
{
    shifter->setSampleRate(unsigned(sample_rate));
    shifter->setChannels(2);
    shifter->setPitch(double(pitch));
    // Shorter than the library's own choice when the pitch rises: syllables keep their edges.
    shifter->setSetting(SETTING_SEQUENCE_MS, 40);
    shifter->setSetting(SETTING_SEEKWINDOW_MS, 15);
    shifter->setSetting(SETTING_OVERLAP_MS, 8);
}

PitchShifter::~PitchShifter() = default;

void PitchShifter::process(std::vector<float>& block)
{
    shifter->putSamples(block.data(), unsigned(block.size() / 2));
    const unsigned frames = shifter->numSamples();
    block.resize(size_t(frames) * 2);
    shifter->receiveSamples(block.data(), frames);
}

} // namespace multimedia
