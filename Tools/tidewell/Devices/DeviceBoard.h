#pragma once

#include "Interfaces/TDWDeviceEvent.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tdw::cli {

/// A watch of a phone.
struct BoardCompanion {
    std::string identifier {};
    std::string name {};
    /// None before it is known.
    std::optional<Value> battery {};
    /// Why nothing newer is known.
    std::string remark {};
};

/// A device that is there, with what is known of it.
struct BoardDevice {
    using Clock = std::chrono::steady_clock;

    std::set<int> connections {};
    /// Empty before it is known.
    std::string name {};
    std::optional<Value> battery {};
    std::vector<BoardCompanion> companions {};
    /// Shown instead of the battery's state: why nothing newer is known.
    std::string remark {};
    /// When it last answered; none before.
    std::optional<Clock::time_point> answeredAt {};
    bool isAsked = false;
    /// When it is to be asked next.
    Clock::time_point dueAt {};
    /// How long after the next failure it is asked again.
    std::chrono::seconds retryPause { 5 };
};

/// What is known of all devices, and which are to be asked. It is told the time, and sends no
/// request itself.
///
/// A device is asked when it comes or is paired, and once a minute. One that fails is asked again
/// after 5 seconds, then after 10, 20, 40 and 60. One that this computer is not paired with is
/// looked at again every 5 seconds, which the multiplexer can do without the device.
class DeviceBoard {
public:
    using Clock = BoardDevice::Clock;
    static constexpr std::chrono::seconds kRefreshInterval { 60 };
    static constexpr std::chrono::seconds kFirstRetryPause { 5 };

    void received(const DeviceEvent& event, Clock::time_point now);

    /// The next device to be asked, or none.
    std::optional<std::string> nextToAsk(Clock::time_point now);

    /// When there will be one; none where no device waits.
    std::optional<Clock::time_point> nextDue() const;

    /// This computer holds no pairing with the device, so it is not asked.
    void notPaired(const std::string& udid, Clock::time_point now);

    /// The answer of the info server. @return the watches to be asked for
    std::vector<std::string> answered(
        const std::string& udid, const Result<Value>& info, Clock::time_point now);

    /// The answer about one watch.
    void companionAnswered(
        const std::string& udid, const std::string& identifier, const Result<Value>& entry);

    const std::map<std::string, BoardDevice>& devices() const { return m_devices; }

private:
    BoardDevice* find(const std::string& udid);

    std::map<std::string, BoardDevice> m_devices;
};

} // namespace tdw::cli
