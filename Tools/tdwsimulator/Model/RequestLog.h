#pragma once

#include "Model/Fault.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tdw::simulator {

/// One thing that happened, as it came over the wire.
struct LogEntry {
    /// Counts from 1.
    std::uint64_t number = 0;
    std::string at;
    std::string device;
    std::string request;
    Dictionary message;
};

/// Which entries are asked for; what is not set matches all.
struct LogFilter {
    std::optional<std::string> at;
    std::optional<std::string> device;
    std::optional<std::string> request;
    /// Only entries with a higher number.
    std::uint64_t after = 0;

    bool matches(const LogEntry& entry) const;
};

/// The requests that the simulator has got, and the waiters for further ones.
///
/// Keeps the last `kCapacity` entries. Used by the simulator's one thread.
class RequestLog {
public:
    static constexpr std::size_t kCapacity = 20'000;
    using Waiter = std::function<void(const LogEntry&)>;

    /// Notes what happened at a site, and calls the waiters that it satisfies.
    void add(const FaultSite& site);

    /// The matching entries, oldest first.
    std::vector<LogEntry> entries(const LogFilter& filter) const;

    std::uint64_t lastNumber() const { return m_lastNumber; }

    /// Calls `waiter` once, with the entry that completes `count` matching ones: at once where
    /// they have come already, else when they do.
    /// @return the number by which waiting is given up, or 0 when the waiter was called at once
    std::uint64_t wait(const LogFilter& filter, std::uint64_t count, Waiter waiter);

    /// After this the waiter is not called any more.
    void giveUp(std::uint64_t number);

private:
    struct Pending {
        std::uint64_t number = 0;
        LogFilter filter;
        std::uint64_t missing;
        Waiter waiter;
    };

    std::deque<LogEntry> m_entries;
    std::vector<Pending> m_pending;
    std::uint64_t m_lastNumber = 0;
    std::uint64_t m_lastWaiter = 0;
};

} // namespace tdw::simulator
