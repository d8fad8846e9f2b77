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
    while (takeFree(block)) {
        std::fill(block.begin(), block.end(), int16_t(0));
        if (source(block.data(), unsigned(block.size() * sizeof(block[0]))) != Ok)
            return;
        std::lock_guard lock(mutex);
        filled_blocks.push_back(std::move(block));
        changed.notify_all();
    }
}

bool EffectEngine::takeFree(Block& block)
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return stopping || !free_blocks.empty(); });
    if (stopping)
        return false;
    block = std::move(free_blocks.front());
    free_blocks.pop_front();
    return true;
}

void EffectEngine::runMixer()
{
    Block block;
    while (takeFilled(block)) {
        mix(block);
        if (!mixed.empty())
            tap(mixed.data(), unsigned(mixed.size() / kMixerChannels), kMixerChannels);
        std::lock_guard lock(mutex);
        free_blocks.push_back(std::move(block));
        changed.notify_all();
    }
}

bool EffectEngine::takeFilled(Block& block)
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return stopping || !filled_blocks.empty(); });
    if (stopping)
        return false;
    block = std::move(filled_blocks.front());
    filled_blocks.pop_front();
    return true;
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
