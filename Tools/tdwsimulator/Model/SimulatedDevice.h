#pragma once

#include "Model/LockdownValues.h"
#include "Model/Scenario.h"
#include "Model/TrustDialog.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tdw::simulator {

/// One device, as long as the simulation runs, attached or not.
class SimulatedDevice {
public:
    explicit SimulatedDevice(DeviceDescription description);

    const std::string& udid() const { return m_description.udid; }
    const DeviceDescription& description() const { return m_description; }

    LockdownValues& values() { return m_values; }
    const LockdownValues& values() const { return m_values; }

    TrustDialog& trust() { return m_trust; }

    /// Changes how the device answers hosts.
    void setTrust(Trust trust);

    /// A text among the global values, or an empty one.
    std::string text(std::string_view key) const;

    /// The USB product identifier that goes with the device's class.
    std::uint64_t productId() const;

    /// The loopback address on which the device is reached over the network, once it has one.
    std::string networkAddress;

private:
    DeviceDescription m_description;
    LockdownValues m_values;
    TrustDialog m_trust;
};

} // namespace tdw::simulator
