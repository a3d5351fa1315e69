#pragma once

#include "Interfaces/TDWDeviceEvent.h"

#include <map>
#include <optional>
#include <set>
#include <vector>

namespace tdw {

class Value;

/// The devices in an envelope of the device list; none where it holds anything else.
std::optional<std::set<DevicePath>> devicesInList(const Value& envelope);

/// Which devices are there, as a listener has been told. Their source (an events server, a service)
/// may end and be followed by another one: the listener hears of the devices that came or went
/// meanwhile, and of nothing else.
class DevicePresence {
public:
    using Events = std::vector<DeviceEvent>;

    /// An event of the source. Returns what the listener is to be told.
    Events received(const DeviceEvent& event);

    /// What a new listener is to be told: the devices that are there.
    Events present() const;

    /// The source is gone. Its devices count as present until the next source, or a list, says
    /// otherwise.
    void sourceEnded();

    /// Whether there are devices that no source has confirmed since the last one's end.
    bool hasUnconfirmed() const;

    /// All devices there are, asked after the present source began. Returns what the listener is to
    /// be told: the unconfirmed devices that are not listed have gone.
    Events listed(const std::set<DevicePath>& devices);

    void clear() { m_devices.clear(); }

private:
    enum class State { Confirmed, Unconfirmed };
    std::map<DevicePath, State> m_devices;
};

} // namespace tdw
