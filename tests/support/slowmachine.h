#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>

/// A machine made slow, or poor, on purpose: a program that links this stands before functions of FFmpeg, and
/// does there what it is told to.
class SlowMachine
{
public:
    using Hindrance = std::function<void()>;

    static SlowMachine& instance();

    /// What happens before each picture is captured, and before each is encoded.
    void set(Hindrance capture, Hindrance encode = {});

    /// Lets a capture be made so often at most.
    static Hindrance every(std::chrono::milliseconds interval);
    /// Captures nothing for the time of the hole, and then at once all that it owes.
    static Hindrance inBursts(std::chrono::milliseconds hole, std::chrono::milliseconds period);

    std::atomic<const char*> capture_rate = nullptr; ///< of captures opened from now on, in place of theirs
    std::atomic<bool> has_h264 = true;               ///< whether there are encoders of H.264

    void beforeCapture() { call(capture); }
    void beforeEncode() { call(encode); }

private:
    void call(const Hindrance& hindrance);

    std::mutex mutex;
    Hindrance capture; ///< guarded by `mutex`
    Hindrance encode;  ///< guarded by `mutex`
};
