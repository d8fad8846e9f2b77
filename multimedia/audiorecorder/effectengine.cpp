#include "multimedia/audiorecorder/effectengine.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace multimedia {

namespace {
constexpr int kMixerChannels = 2;
constexpr int kBlocksPerSecond = 50;
constexpr size_t kBlocksAhead = 4;
constexpr float kFullScale = 32768.0F;
constexpr float kHighest = 1.0F - 1.0F / kFullScale;
} // namespace

EffectEngine::EffectEngine(Source source, Tap tap)
    : source(std::move(source))
    , tap(std::move(tap))
{}

EffectEngine::~EffectEngine()
{
    stop();
}

void EffectEngine::addEffect(std::unique_ptr<Effect> effect)
{
    effects.push_back(std::move(effect));
}

bool EffectEngine::canPlay(Stream stream)
{
    return stream.bits == 16 && stream.channels >= 1 && stream.channels <= 32 && stream.sample_rate >= 1000 &&
           stream.sample_rate <= 192000;
}

bool EffectEngine::start(Stream wanted)
{
    if (!canPlay(wanted))
        return false;
    stream = wanted;
    free_blocks.assign(kBlocksAhead, Block(size_t(stream.sample_rate / kBlocksPerSecond * stream.channels)));
    try {
        mixer_thread = std::thread([this] { runMixer(); });
        stream_thread = std::thread([this] { runStream(); });
    } catch (const std::system_error&) {
        stop();
        return false;
    }
    return true;
}

void EffectEngine::stop()
{
    {
        std::lock_guard lock(mutex);
        stopping = true;
    }
    changed.notify_all();
    for (std::thread* thread : {&stream_thread, &mixer_thread}) {
        if (thread->joinable())
            thread->join();
    }
}

void EffectEngine::runStream()
{
    Block block;
    while (take(free_blocks, block)) {
        std::fill(block.begin(), block.end(), int16_t(0));
        if (source(block.data(), unsigned(block.size() * sizeof(block[0]))) != Ok)
            return;
        give(filled_blocks, std::move(block));
    }
}

void EffectEngine::runMixer()
{
    Block block;
    while (take(filled_blocks, block)) {
        mix(block);
        if (!mixed.empty())
            tap(mixed.data(), unsigned(mixed.size() / kMixerChannels), kMixerChannels);
        give(free_blocks, std::move(block));
    }
}

/// Waits for a block; false when the engine is to stop.
bool EffectEngine::take(std::deque<Block>& list, Block& block)
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return stopping || !list.empty(); });
    if (stopping)
        return false;
    block = std::move(list.front());
    list.pop_front();
    return true;
}

void EffectEngine::give(std::deque<Block>& list, Block block)
{
    std::lock_guard lock(mutex);
    list.push_back(std::move(block));
    changed.notify_all();
}

void EffectEngine::mix(const Block& block)
{
    const auto channels = size_t(stream.channels);
    const size_t right = channels > 1 ? 1 : 0;
    mixed.clear();
    for (size_t i = 0; i < block.size(); i += channels) {
        mixed.push_back(float(block[i]) / kFullScale);
        mixed.push_back(float(block[i + right]) / kFullScale);
    }
    for (const auto& effect : effects)
        effect->process(mixed);
    for (float& sample : mixed)
        sample = std::clamp(sample, -1.0F, kHighest);
}

} // namespace multimedia
