#include "multimedia/base/soundend.h"

#include "multimedia/base/processend.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace multimedia {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kAnswersTake(100);

std::atomic<Clock::time_point> last_closed{Clock::time_point::min()};
/// Never destroyed: it is called after the ends of those who close their devices then.
std::atomic<ProcessEnd*> answers_come{nullptr};

} // namespace

void soundHasOpened()
{
    static std::once_flag made;
    std::call_once(made, [] {
        answers_come =
            new ProcessEnd([] { std::this_thread::sleep_until(last_closed.load() + kAnswersTake); });
    });
}

void soundHasClosed()
{
    last_closed = Clock::now();
}

} // namespace multimedia
