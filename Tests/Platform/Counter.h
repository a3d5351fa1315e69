#pragma once

#include "Support/Testing.h"

#include <atomic>

/// Counts what other threads do, for a test that waits for it.
class Counter {
public:
    void add() { ++m_count; }
    int value() const { return m_count; }

    /// Whether the count comes to `count` before a bound that no working system needs.
    bool reaches(int count) const
    {
        return becomesTrue([this, count] { return m_count >= count; });
    }

private:
    std::atomic<int> m_count = 0;
};
