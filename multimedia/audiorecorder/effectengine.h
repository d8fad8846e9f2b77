#pragma once

#include "multimedia/audiorecorder/effect.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace multimedia {

/// Passes a user-fed stream of 16-bit PCM through effects and hands the result out as float blocks.
///
///     source --stream thread--> at most 4 blocks of 20 ms --mixer thread--> effects --> tap
///
/// The mixer runs at the stream's rate with two channels and nothing is audible: mono is copied to both
/// channels, of more than two the first two are kept. It runs as fast as it is fed: the stream thread blocks
/// in the source or for room, the mixer for a block, and neither looks at a clock.
///
/// The stream ends when the source says so; both threads then sleep until the engine is destroyed. Effects
/// hold sound back: a source that wants all of it goes on with silence until the tap has had enough.
///
/// Shared between the threads, and guarded by `mutex`, are the two lists of blocks and `stopping`; all else
/// belongs to one thread or does not change after `start`.
class EffectEngine
{
public:
    struct Stream
    {
        int sample_rate; ///< Hz, 1000 to 192000
        int channels;    ///< 1 to 32, interleaved
        int bits;        ///< per sample; 16 is what there is
    };

    enum Result { Ok = 0, NotReady = 46 };

    /// Fills `data`, which holds silence, with `bytes` bytes of samples in host byte order. Called on the
    /// stream thread; may block. Any result but `Ok` ends the stream.
    using Source = std::function<int(void* data, unsigned bytes)>;
    /// Takes `frames` × `channels` interleaved samples, -1 to 1 - 2^-15. Called on the mixer thread.
    using Tap = std::function<void(const float* samples, unsigned frames, int channels)>;

    EffectEngine(Source source, Tap tap);
    /// Ends both threads and waits for them. A source that blocks must be made to return before. Not from the
    /// source nor from the tap.
    ~EffectEngine();
    EffectEngine(const EffectEngine&) = delete;
    EffectEngine& operator=(const EffectEngine&) = delete;

    static bool canPlay(Stream stream);
    /// Puts an effect behind those there are. Before `start`.
    void addEffect(std::unique_ptr<Effect> effect);
    /// Begins to call the source. Once; false when it cannot play such a stream or gets no thread.
    bool start(Stream stream);

private:
    using Block = std::vector<int16_t>;

    void runStream();
    void runMixer();
    bool take(std::deque<Block>& list, Block& block);
    void give(std::deque<Block>& list, Block block);
    void mix(const Block& block);
    void stop();

    const Source source;
    const Tap tap;
    std::vector<std::unique_ptr<Effect>> effects;
    Stream stream = {};
    std::vector<float> mixed; ///< the mixer's block, interleaved stereo

    std::mutex mutex;
    std::condition_variable changed; ///< either list has grown, or `stopping` was set
    std::deque<Block> free_blocks;
    std::deque<Block> filled_blocks;
    bool stopping = false;

    std::thread stream_thread;
    std::thread mixer_thread;
};

} // namespace multimedia
