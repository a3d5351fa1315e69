#include "Client/MonitorPolicy.h"

#include "Support/TDWErrorKinds.h"

#include <algorithm>
#include <utility>

namespace tdw {

MonitorPolicy::Actions MonitorPolicy::started(Time now)
{
    return subscribe(now);
}

MonitorPolicy::Actions MonitorPolicy::subscribe(Time now)
{
    m_state = State::Subscribing;
    m_isListing = false;
    m_subscriptionBackoff.started(now);
    return { Subscribe() };
}

MonitorPolicy::Actions MonitorPolicy::subscribed(Time now)
{
    m_state = State::Streaming;
    return list(now);
}

MonitorPolicy::Actions MonitorPolicy::list(Time now)
{
    if (std::exchange(m_isListing, true))
        return {};
    m_listBackoff.started(now);
    return { ListDevices() };
}

MonitorPolicy::Actions MonitorPolicy::received(const DeviceEvent& event, Time now)
{
    Actions actions;
    tell(actions, m_presence.received(event));
    // The multiplexer is back, or was there all the time.
    if (event.type == DeviceEvent::Type::Attached && m_knowledge == Knowledge::Unknown
        && !m_presence.hasUnconfirmed())
        know(actions);
    if (event.type == DeviceEvent::Type::Detached && m_presence.present().empty())
        std::ranges::move(list(now), std::back_inserter(actions));
    return actions;
}

MonitorPolicy::Actions MonitorPolicy::listed(const Result<std::set<DevicePath>>& devices, Time now)
{
    Actions actions;
    if (m_state != State::Streaming || !std::exchange(m_isListing, false))
        return actions;
    // Without a multiplexer no device can be reached.
    if (devices || isDeviceNotFound(devices.error()))
        tell(actions, m_presence.listed(devices ? *devices : std::set<DevicePath>()));
    if (devices) {
        know(actions);
        return actions;
    }
    doNotKnow(actions, devices.error());
    actions.emplace_back(Wait { std::max(m_listBackoff.ended(now), kMinimumListPause) });
    return actions;
}

MonitorPolicy::Actions MonitorPolicy::failed(const Error& reason, Time now)
{
    if (m_state == State::Pausing)
        return {};
    m_state = State::Pausing;
    m_presence.sourceEnded();
    Actions actions { Disconnect() };
    doNotKnow(actions, reason);
    actions.emplace_back(Wait { m_subscriptionBackoff.ended(now) });
    return actions;
}

MonitorPolicy::Actions MonitorPolicy::waited(Time now)
{
    switch (m_state) {
    case State::Subscribing:
        return {};
    case State::Streaming:
        return m_knowledge == Knowledge::Known ? Actions() : list(now);
    case State::Pausing:
        return subscribe(now);
    }
    return {};
}

void MonitorPolicy::tell(Actions& actions, const DevicePresence::Events& events)
{
    actions.insert(actions.end(), events.begin(), events.end());
}

void MonitorPolicy::know(Actions& actions)
{
    m_listBackoff.reset();
    if (std::exchange(m_knowledge, Knowledge::Known) != Knowledge::Known)
        actions.emplace_back(Outage {});
}

void MonitorPolicy::doNotKnow(Actions& actions, const Error& reason)
{
    const bool isTold = std::exchange(m_knowledge, Knowledge::Unknown) == Knowledge::Unknown
        && m_reason->domain() == reason.domain() && m_reason->code() == reason.code();
    m_reason = reason;
    if (!isTold)
        actions.emplace_back(Outage { reason });
}

} // namespace tdw
