#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tdw::service {

/// A device, by one of the ways to it: the connection's type (1 USB, 2 network) and the UDID.
using DevicePath = std::pair<int, std::string>;

/// An event line taken apart.
struct DeviceEvent {
    enum class Type { Attached = 1, Detached = 2, Paired = 3 };
    Type type = Type::Attached;
    DevicePath path;
    bool operator==(const DeviceEvent&) const = default;
};

/// None where the line is not one: the events server is a process like any other, and what it
/// writes goes to applications.
std::optional<DeviceEvent> parseEventLine(std::string_view line);
std::string eventLine(const DeviceEvent& event);

/// Which devices are there, as subscribers have been told: by an events server, or by several in
/// succession, whose ends go unnoticed as far as no device came or went.
class DevicePresence {
public:
    using Lines = std::vector<std::string>;

    /// A line of the events server. Returns what subscribers are to be told.
    Lines received(std::string_view line);

    /// What a new subscriber is to be told: the devices that are there.
    Lines present() const;

    /// The events server is gone. Its devices count as present until the next one, or a list, says
    /// otherwise.
    void serverEnded();

    /// Whether there are devices that nobody has vouched for since the events server's end.
    bool hasUnconfirmed() const;

    /// All devices there are, asked after the present events server began. Returns what subscribers
    /// are to be told: the devices that went while nobody watched.
    Lines listed(const std::set<DevicePath>& devices);

    void clear() { m_devices.clear(); }

private:
    enum class State { Confirmed, Unconfirmed };
    std::map<DevicePath, State> m_devices;
};

} // namespace tdw::service
