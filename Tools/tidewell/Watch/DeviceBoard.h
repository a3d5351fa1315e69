#pragma once

#include "Platform/Result.h"
#include "Platform/Value.h"
#include "tidewell-service/DevicePresence.h"

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tdw::cli {

/// A watch that a phone has told of.
struct BoardWatch {
    std::string identifier;
    /// None before it is known.
    std::optional<Value> battery {};
};

/// A device that is there, with what is known of it.
struct BoardDevice {
    std::set<int> connections {};
    /// Empty where the device has not said.
    std::string name {};
    std::optional<Value> battery {};
    std::vector<BoardWatch> watches {};
    /// What there is to say instead of the battery's state: why nothing is known, or no more.
    std::string remark {};
    /// Whether it has been asked and has not answered yet.
    bool isAsked = false;
    /// Whether it may be asked without an event: it trusted this computer when it last answered.
    bool isTrusted = false;
};

/// What is known of all devices, and which are to be asked. Knows no clock and asks nobody itself.
///
/// A device that does not trust this computer is asked once for each event that concerns it and
/// never by the way, because the question can raise its trust dialog.
class DeviceBoard {
public:
    void received(const service::DeviceEvent& event);

    /// The next device to be asked, or none.
    std::optional<std::string> nextToAsk();

    /// All trusted devices are to be asked again.
    void refresh();

    /// This computer holds no pairing with the device, so it is not asked.
    void isStranger(const std::string& udid);

    /// What the info server said. @return the watches whose batteries are to be asked for
    std::vector<std::string> answered(const std::string& udid, const Result<Value>& info);

    /// What the server of the watches' batteries said.
    void watchesAnswered(const std::string& udid, const Result<Value>& batteries);

    const std::map<std::string, BoardDevice>& devices() const { return m_devices; }

private:
    BoardDevice* find(const std::string& udid);
    void want(const std::string& udid);

    std::map<std::string, BoardDevice> m_devices;
    std::deque<std::string> m_wanted;
};

} // namespace tdw::cli
