#pragma once

#include "Model/LockdownValues.h"
#include "Model/NotificationCenter.h"
#include "Model/Scenario.h"
#include "Model/Wallpaper.h"
#include "Trust/Pairing.h"
#include "Trust/TrustDialog.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// One device, as long as the simulation runs, attached or not.
class SimulatedDevice {
public:
    SimulatedDevice(DeviceDescription description, std::shared_ptr<const SimulatorKeys> keys);

    const std::string& udid() const { return m_description.udid; }
    /// What the scenario says, without the domains, which are among `values`.
    const DeviceDescription& description() const { return m_description; }

    LockdownValues& values() { return m_values; }
    const LockdownValues& values() const { return m_values; }

    TrustDialog& trust() { return m_trust; }
    const TrustDialog& trust() const { return m_trust; }
    PairingStore& pairings() { return m_pairings; }

    NotificationCenter& notifications() { return m_notifications; }

    /// The user touches the trust dialog. Hosts that wait for it hear of a consent.
    void answerTrust(TrustDialog::Answer answer);

    /// Changes how the device answers hosts.
    void setTrust(Trust trust);

    const std::vector<CompanionDescription>& companions() const { return m_description.companions; }

    /// The companion, or null.
    const CompanionDescription* companion(std::string_view udid) const;
    CompanionDescription* companion(std::string_view udid);

    /// A PNG image: the scenario's file, or one drawn for the device at the width that is asked
    /// for.
    Data wallpaper(WallpaperPlace place, double widthPixels) const;

    /// Counts the sessions from 1.
    std::uint64_t nextSessionNumber() { return ++m_lastSession; }

    /// A text among the global values, or an empty one.
    std::string text(std::string_view key) const;

    /// The USB product identifier that goes with the device's class.
    std::uint64_t productId() const;

    /// The loopback address on which the device is reached over the network, once it has one.
    const std::string& networkAddress() const { return m_networkAddress; }
    void setNetworkAddress(std::string address) { m_networkAddress = std::move(address); }

private:
    DeviceDescription m_description;
    LockdownValues m_values;
    TrustDialog m_trust;
    PairingStore m_pairings;
    NotificationCenter m_notifications;
    std::uint64_t m_lastSession = 0;
    std::string m_networkAddress;
};

} // namespace tdw::simulator
