#pragma once

#include "Interfaces/TDWDeviceEvent.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Requests/DeviceRequests.h"

#include <functional>
#include <memory>
#include <optional>

namespace tdw::cli {

/// Device events as they happen, on the loop of the requests, beginning with the devices that are
/// there. No handler runs after the feed's end.
class DeviceFeed {
public:
    struct Handlers {
        std::function<void(const DeviceEvent& event)> event;

        /// Why there are no events at present, while the feed does what it can to have them again;
        /// none when it has them.
        std::function<void(const std::optional<Error>& reason)> outage;

        /// Why there are none for good.
        std::function<void(const Error& reason)> end;
    };

    /// Subscribes, by the same transport as requests: through the service, or to an events server
    /// of this process's own. Errors: `ExitStatus::ServerNotRun`
    static Result<std::unique_ptr<DeviceFeed>> open(DeviceRequests& requests, Handlers handlers);

    DeviceFeed() = default;
    DeviceFeed(const DeviceFeed&) = delete;
    DeviceFeed& operator=(const DeviceFeed&) = delete;
    virtual ~DeviceFeed() = default;
};

} // namespace tdw::cli
