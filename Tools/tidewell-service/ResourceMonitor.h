#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace tdw::service {

/// Notices, once, that the service holds more than it ever should. Measured when there is work, and
/// seldom, so that a service at rest does nothing.
class ResourceMonitor {
public:
    static constexpr std::chrono::seconds kInterval { 1 };
    static constexpr std::size_t kMaximumResidentBytes = std::size_t { 128 } << 20;

    ResourceMonitor();

    /// The uptime in seconds, at the first call that finds a limit reached.
    std::optional<std::int64_t> uptimeAtLimit();

    /// There is no room for another client: a limit, too. The next look reports it.
    void becameFull() { m_isFull = true; }

    std::chrono::seconds uptime() const
    {
        return std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_start);
    }

private:
    using Clock = std::chrono::steady_clock;

    const Clock::time_point m_start = Clock::now();
    Clock::time_point m_lastLook = m_start - kInterval;
    std::size_t m_maximumDescriptors = 0;
    bool m_isFull = false;
    bool m_hasReported = false;
};

/// What the process holds of the machine's memory.
std::size_t residentBytes();

} // namespace tdw::service
