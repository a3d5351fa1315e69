#pragma once

#include "Support/Testing.h"

#include <condition_variable>
#include <mutex>

/// Counts what other threads do, for a test that waits for it.
class Counter {
public:
    void add()
    {
        const std::lock_guard lock(m_mutex);
        ++m_count;
        m_changed.notify_all();
    }

    int value() const
    {
        const std::lock_guard lock(m_mutex);
        return m_count;
    }

    /// Whether the count comes to `count` before a bound that no working system needs.
    bool reaches(int count) const
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(
            lock, std::chrono::seconds(10), [this, count] { return m_count >= count; });
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    int m_count = 0;
};
