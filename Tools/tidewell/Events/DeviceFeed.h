#pragma once

#include "Devices/Requests.h"
#include "Platform/Error.h"
#include "Platform/Result.h"
#include "tidewell-service/DevicePresence.h"

#include <memory>
#include <optional>
#include <vector>

namespace tdw::cli {

using service::DeviceEvent;

/// Device events as they happen, for a program that waits for descriptors. They begin with the
/// devices that are there. Belongs to one thread.
class DeviceFeed {
public:
    DeviceFeed() = default;
    DeviceFeed(const DeviceFeed&) = delete;
    DeviceFeed& operator=(const DeviceFeed&) = delete;
    virtual ~DeviceFeed() = default;

    /// Polls readable when it is time to `take`.
    virtual int descriptor() const = 0;

    /// The events since the last time; does not wait. Errors: why there are no more.
    virtual Result<std::vector<DeviceEvent>> take() = 0;

    /// Why there are no events at present, while the feed does what it can to have them again.
    virtual std::optional<Error> outage() const = 0;
};

/// Subscribes, by the road that requests take.
Result<std::unique_ptr<DeviceFeed>> openDeviceFeed(Requests::Road road);

} // namespace tdw::cli
