#pragma once

#include "Interfaces/TDWDeviceEvent.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tdw {

/// The pairings that the multiplexer does not report: that of Debian 13 and later reports none. Is
/// told the events and which pair records were found, and says which records to look for. Knows no
/// library, thread or clock.
///
/// A device counts as paired from now on where it had no record before, whether it stayed or left
/// and came back: a phone may leave when its user taps Trust. A device that is unpaired while it
/// stays attached is looked at again when it is attached again.
class UnreportedPairings {
public:
    struct Look {
        std::string udid;
        /// The device's last event. A look counts only where none has followed.
        std::uint64_t lastEvent = 0;
    };

    /// An event of the library.
    /// @return whether listeners are to be told: not where `looked` has told them of the pairing
    bool received(const DeviceEvent& event);

    /// The pair records to look for: those of devices that are attached and not known to be paired.
    std::vector<Look> looks() const;

    /// @return what listeners are to be told
    std::optional<DeviceEvent> looked(const Look& look, bool hasRecord);

private:
    struct Device {
        std::set<int> connections {};
        std::uint64_t lastEvent = 0;
        /// None before the first look.
        std::optional<bool> isPaired {};
        bool isToBeLookedAt = false;
        bool isTold = false;
    };

    std::uint64_t m_eventCount = 0;
    /// Those that are attached, and those that left without a record.
    std::map<std::string, Device> m_devices;
};

} // namespace tdw
