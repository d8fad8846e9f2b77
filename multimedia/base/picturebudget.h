#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

struct AVBufferRef;

namespace multimedia {

/// The one place where the bytes of raw pictures under way through a graph are counted.
///
/// Queues have no bound; who lets pictures into a graph asks here first. A buffer counts from `charge` until
/// its last reference has gone, wherever it is by then: a picture that is repeated counts once.
///
/// Any thread. Buffers may outlive the budget.
class PictureBudget
{
public:
    explicit PictureBudget(std::size_t limit_bytes)
        : limit(limit_bytes)
    {}

    /// Whether so many bytes more may be let in. One picture always may, however large.
    bool hasRoom(std::size_t bytes) const;

    /// Puts a counted buffer around `*buffer`, with the same bytes.
    ///
    /// @param on_release  called when the last reference goes, on the thread that lets it go
    /// @return false when memory is short; nothing has changed then
    bool charge(AVBufferRef** buffer, std::function<void()> on_release = {});

    std::size_t used() const { return *bytes_used; }

private:
    const std::size_t limit;
    const std::shared_ptr<std::atomic<std::size_t>> bytes_used =
        std::make_shared<std::atomic<std::size_t>>(0);
};

} // namespace multimedia
