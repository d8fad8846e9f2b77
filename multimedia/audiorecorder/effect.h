#pragma once

#include <vector>

namespace multimedia {

/// One step of a voice change, in the mixer of an `EffectEngine`.
///
/// Only the mixer's thread calls it.
class Effect
{
public:
    Effect() = default;
    virtual ~Effect() = default;
    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    /// Replaces the interleaved stereo samples of `block`, nominally -1 to 1, by the sound that is ready
    /// after them: fewer frames while the effect looks ahead, more later, never more in all than went in.
    /// Silence pushes out what is held back.
    virtual void process(std::vector<float>& block) = 0;
};

} // namespace multimedia
