#include "RelayPolicy.h"

#include <utility>

namespace tdw::service {

RelayPolicy::Actions RelayPolicy::subscribed(Subscriber subscriber, Clock::time_point now)
{
    Actions actions;
    m_subscribers[subscriber] = Place::Waiting;
    if (m_state == State::Streaming)
        welcome(actions, subscriber);
    else if (m_state == State::Stopped)
        start(actions, now);
    return actions;
}

RelayPolicy::Actions RelayPolicy::unsubscribed(Subscriber subscriber)
{
    if (m_subscribers.erase(subscriber) == 0 || !m_subscribers.empty())
        return {};
    m_state = State::Stopped;
    m_presence.clear();
    m_backoff.reset();
    return { CancelTimer {}, EndServer {} };
}

RelayPolicy::Actions RelayPolicy::started()
{
    return m_state == State::Starting ? Actions { SetTimer { kQuietStart } } : Actions();
}

RelayPolicy::Actions RelayPolicy::received(std::string_view line)
{
    if (m_state != State::Starting && m_state != State::Streaming)
        return {};
    Actions actions;
    const auto event = parseDeviceEvent(line);
    if (!event) {
        if (m_state == State::Starting && !std::exchange(m_isNoisy, true))
            actions.push_back(SetTimer { kNoisyStart });
        return actions;
    }
    if (m_state == State::Starting)
        succeeded(actions);
    tell(actions, m_presence.received(*event));
    return actions;
}

RelayPolicy::Actions RelayPolicy::ended(const Error& error, Clock::time_point now)
{
    Actions actions { EndServer {} };
    m_presence.sourceEnded();
    if (m_state == State::Starting)
        std::erase_if(m_subscribers, [&](const auto& entry) {
            if (entry.second == Place::Waiting)
                actions.push_back(Reply { entry.first, error });
            return entry.second == Place::Waiting;
        });
    const auto pause = m_backoff.ended(now);
    if (m_subscribers.empty()) {
        m_state = State::Stopped;
        m_presence.clear();
        m_backoff.reset();
        actions.push_back(CancelTimer {});
    } else {
        m_state = State::Pausing;
        actions.push_back(SetTimer { pause });
    }
    return actions;
}

RelayPolicy::Actions RelayPolicy::timerFired(Clock::time_point now)
{
    Actions actions;
    if (m_state == State::Starting)
        succeeded(actions);
    else if (m_state == State::Pausing)
        start(actions, now);
    return actions;
}

RelayPolicy::Actions RelayPolicy::listed(const std::optional<std::set<DevicePath>>& devices)
{
    Actions actions;
    // Devices that cannot be listed cannot be reached either. Those that are there after all are
    // announced by the events server.
    tell(actions, m_presence.listed(devices.value_or(std::set<DevicePath>())));
    return actions;
}

void RelayPolicy::start(Actions& actions, Clock::time_point now)
{
    m_state = State::Starting;
    m_isNoisy = false;
    m_backoff.started(now);
    actions.push_back(StartServer {});
}

void RelayPolicy::succeeded(Actions& actions)
{
    m_state = State::Streaming;
    actions.push_back(CancelTimer {});
    for (const auto& [subscriber, place] : m_subscribers) {
        if (place == Place::Waiting)
            welcome(actions, subscriber);
    }
    if (m_presence.hasUnconfirmed())
        actions.push_back(ListDevices {});
}

void RelayPolicy::welcome(Actions& actions, Subscriber subscriber)
{
    m_subscribers.at(subscriber) = Place::Told;
    actions.push_back(Reply { subscriber, std::nullopt });
    for (const DeviceEvent& event : m_presence.present())
        actions.push_back(Tell { subscriber, event });
}

void RelayPolicy::tell(Actions& actions, const DevicePresence::Events& events) const
{
    for (const DeviceEvent& event : events) {
        for (const auto& [subscriber, place] : m_subscribers) {
            if (place == Place::Told)
                actions.push_back(Tell { subscriber, event });
        }
    }
}

} // namespace tdw::service
