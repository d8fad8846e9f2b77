#include "multimedia/base/soundend.h"

#include "multimedia/base/processend.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace multimedia {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kAnswersTake(100);

std::atomic<Clock::time_point> last_closed{Clock::time_point::min()};

} // namespace

void soundHasOpened()
{
    // Never destroyed: it is called after the ends of those who close their devices then.
    static const ProcessEnd& answers_come =
        *new ProcessEnd([] { std::this_thread::sleep_until(last_closed.load() + kAnswersTake); });
    static_cast<void>(answers_come);
}

void soundHasClosed()
{
    last_closed = Clock::now();
}

} // namespace multimedia
