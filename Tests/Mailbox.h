#pragma once

#include "Support/Testing.h"

#include <condition_variable>
#include <deque>
#include <mutex>

/// What other threads report, for a test that waits for it within a bound that no working system
/// needs.
template <typename T>
class Mailbox {
public:
    void put(T item)
    {
        const std::lock_guard lock(m_mutex);
        m_items.push_back(std::move(item));
        m_changed.notify_all();
    }

    std::optional<T> take(std::chrono::seconds bound = std::chrono::seconds(30))
    {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, bound, [this] { return !m_items.empty(); })) {
            ADD_FAILURE() << "nothing came";
            return std::nullopt;
        }
        T item = std::move(m_items.front());
        m_items.pop_front();
        return item;
    }

    bool isEmpty() const
    {
        const std::lock_guard lock(m_mutex);
        return m_items.empty();
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<T> m_items;
};
