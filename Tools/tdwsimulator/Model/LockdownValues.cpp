#include "Model/LockdownValues.h"

#include <algorithm>
#include <array>

namespace tdw::simulator {

namespace {

constexpr std::array<std::string_view, 26> kPublicKeys { "BluetoothAddress", "BuildVersion",
    "CPUArchitecture", "DeviceClass", "DeviceColor", "DeviceName", "DevicePublicKey",
    "EthernetAddress", "HardwareModel", "HasSiDP", "HostAttached",
    "HumanReadableProductVersionString", "PartitionType", "ProductName", "ProductType",
    "ProductVersion", "ProtocolVersion", "SoftwareBundleVersion", "SupportedDeviceFamilies",
    "TelephonyCapability", "TimeIntervalSince1970", "TimeZone", "TimeZoneOffsetFromUTC",
    "UniqueDeviceID", "Uses24HourClock", "WiFiAddress" };

constexpr std::array<std::string_view, 5> kWritableGlobalKeys { "DeviceName",
    "TimeIntervalSince1970", "TimeZone", "TimeZoneOffsetFromUTC", "Uses24HourClock" };

constexpr std::array<std::string_view, 3> kWritableWirelessKeys { "EnableWifiConnections",
    "EnableWifiDebugging", "WirelessBuddyID" };

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& keys, std::string_view key)
{
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

} // namespace

LockdownValues::LockdownValues(Domains domains, std::optional<std::vector<std::string>> publicKeys)
    : m_domains(std::move(domains))
    , m_publicKeys(publicKeys ? *std::move(publicKeys)
                              : std::vector<std::string>(kPublicKeys.begin(), kPublicKeys.end()))
{
}

const Dictionary* LockdownValues::domain(std::string_view domain) const
{
    const auto found = m_domains.find(domain);
    return found == m_domains.end() ? nullptr : &found->second;
}

const Value* LockdownValues::value(std::string_view domain, std::string_view key) const
{
    const Dictionary* values = this->domain(domain);
    return values ? values->find(key) : nullptr;
}

void LockdownValues::set(std::string_view domain, std::string_view key, Value value)
{
    m_domains[std::string(domain)].set(key, std::move(value));
}

bool LockdownValues::remove(std::string_view domain, std::string_view key)
{
    const auto found = m_domains.find(domain);
    return found != m_domains.end() && found->second.remove(key);
}

Dictionary LockdownValues::publicValues() const
{
    Dictionary values;
    for (const std::string& key : m_publicKeys) {
        if (const Value* found = value(kGlobalDomain, key))
            values.set(key, *found);
    }
    return values;
}

bool LockdownValues::isPublic(std::string_view domain, std::string_view key) const
{
    return domain == kGlobalDomain
        && std::find(m_publicKeys.begin(), m_publicKeys.end(), key) != m_publicKeys.end();
}

bool LockdownValues::isWritable(std::string_view domain, std::string_view key)
{
    if (domain == kGlobalDomain)
        return contains(kWritableGlobalKeys, key);
    if (domain == kWirelessDomain)
        return contains(kWritableWirelessKeys, key);
    // Domains that a scenario adds are its author's own.
    return domain != kBatteryDomain;
}

} // namespace tdw::simulator
