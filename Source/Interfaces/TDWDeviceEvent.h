#pragma once

#include "Platform/Export.h"

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace tdw {

/// A device by one of the ways to it. A device that is on the cable and on the network has two.
struct DevicePath {
    /// 1 USB, 2 network, 0 where the multiplexer does not say
    int connection = 0;
    std::string udid;

    // NOLINTNEXTLINE(modernize-use-nullptr): what the compiler makes of it compares with 0
    auto operator<=>(const DevicePath&) const = default;
};

/// What an event string says. The events server writes them and `TidewellServiceClient` passes them
/// on, for example "1,2,00008130-00FACADE0010001C".
struct DeviceEvent {
    enum class Type {
        Attached = 1,
        Detached = 2,
        /// This host and the device trust each other from now on.
        Paired = 3,
    };

    Type type = Type::Attached;
    DevicePath path;

    bool operator==(const DeviceEvent&) const = default;
};

/// None for anything that is not exactly an event string: a server is a process like any other, and
/// its output is not trusted.
TDW_EXPORT std::optional<DeviceEvent> parseDeviceEvent(std::string_view text);

/// "type,connection,UDID", without a line end.
TDW_EXPORT std::string deviceEventText(const DeviceEvent& event);

} // namespace tdw
