#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

namespace tdw {

/// How long to wait before something that ended is started again: 100 ms, doubled with each end up
/// to 10 s, and 100 ms again after a life of 10 s. It is told the time and asks no clock.
class Backoff {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kMinimumBackoff { 100 };
    static constexpr std::chrono::milliseconds kMaximumBackoff { 10000 };
    static constexpr std::chrono::seconds kBackoffResetAfter { 10 };

    void started(Clock::time_point now) { m_startTime = now; }

    /// What was started last has ended, or could not be started.
    /// @return how long to wait before the next start
    std::chrono::milliseconds ended(Clock::time_point now)
    {
        if (now - m_startTime >= kBackoffResetAfter)
            reset();
        return std::exchange(m_pause, std::min(2 * m_pause, kMaximumBackoff));
    }

    void reset() { m_pause = kMinimumBackoff; }

private:
    Clock::time_point m_startTime {};
    std::chrono::milliseconds m_pause = kMinimumBackoff;
};

} // namespace tdw
