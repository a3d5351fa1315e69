#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tdw::simulator {

/// The notifications that a device sends to hosts which observe them.
class NotificationCenter {
public:
    using Observer = std::function<void(const std::string& name)>;

    /// `observer` is called for every notification as long as the returned pointer is held.
    [[nodiscard]] std::shared_ptr<Observer> observe(Observer observer)
    {
        auto kept = std::make_shared<Observer>(std::move(observer));
        m_observers.push_back(kept);
        return kept;
    }

    void post(const std::string& name)
    {
        std::erase_if(m_observers, [](const auto& observer) { return observer.expired(); });
        const auto observers = m_observers;
        for (const auto& weak : observers) {
            if (const auto observer = weak.lock())
                (*observer)(name);
        }
    }

private:
    std::vector<std::weak_ptr<Observer>> m_observers;
};

} // namespace tdw::simulator
