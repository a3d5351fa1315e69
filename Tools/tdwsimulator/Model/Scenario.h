#pragma once

#include "Model/Fault.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

enum class ConnectionType { Usb, Network };
inline constexpr std::string_view kConnectionTypeNames[] = { "usb", "network" };

/// How a network device's address stands in its record: as BSD systems lay socket addresses out,
/// or as Linux does. Releases of the device library accept the one or the other.
enum class AddressLayout { Bsd, Linux };
inline constexpr std::string_view kAddressLayoutNames[] = { "bsd", "linux" };

/// The layout that the device library of this build wants.
AddressLayout defaultAddressLayout();

/// How a device answers a host that wants to be trusted, or that was trusted once.
enum class Trust {
    Trusts, ///< any host, at once
    Asks, ///< shows its dialog; the control socket (or `acceptAfter`) answers it
    Denies, ///< its user has said no
    Locked, ///< a passcode keeps everything shut
    EscrowLocked, ///< not unlocked since it started: no session and no service
    FindMyLocked, ///< refuses to pair because of its lost mode
    Managed, ///< a management profile forbids pairing
    ManagedChallenge, ///< a management profile wants a challenge answered first
    ForgotHost, ///< was reset: does not know this host any more, and trusts it when asked anew
    UsbOnly, ///< does not pair over the network
};
inline constexpr std::string_view kTrustNames[] = { "trusts", "asks", "denies", "locked",
    "escrow-locked", "find-my", "managed", "managed-challenge", "forgot-host", "usb-only" };

/// A watch behind a phone, as the companion proxy tells of it.
struct WatchDescription {
    std::string udid;
    Dictionary values;
    Dictionary errors; ///< keys that are answered with an error, and its name
};

inline constexpr std::string_view kGlobalDomain {};
inline constexpr std::string_view kBatteryDomain = "com.apple.mobile.battery";
inline constexpr std::string_view kWirelessDomain = "com.apple.mobile.wireless_lockdown";

struct DeviceDescription {
    std::string udid;
    std::vector<ConnectionType> connections { ConnectionType::Usb };
    std::map<std::string, Dictionary, std::less<>> domains; ///< the values that lockdown knows
    bool isPaired = true;
    Trust trust = Trust::Trusts;
    std::optional<std::uint64_t> acceptAfter; ///< Asks: the request that finds the dialog accepted
    bool reconnectsAfterTrust = false;
    bool usesTls = true;
    bool repliesWithResult = false; ///< as systems before 5 did
    std::optional<std::string> networkAddress; ///< 127.x.y.z; none: one that is free
    std::vector<WatchDescription> watches;
    std::uint64_t orientation = 1; ///< how it is held: 1 is upright
    std::optional<Data> wallpaper; ///< a PNG image for all places; none: one is drawn
};

/// Everything that a simulation begins with.
struct Scenario {
    AddressLayout addressLayout = defaultAddressLayout();
    std::string systemBuid = "7E57B01D-0000-4000-8000-00000000B01D";
    std::vector<DeviceDescription> devices;
    std::vector<Fault> faults;
};

/// Reads a scenario file. Errors name the file, the place in the document and the value.
Result<Scenario> loadScenario(const std::filesystem::path& file);

/// The same from a text.
/// @param directory what names of files in it are relative to
Result<Scenario> scenarioFromText(std::string_view text, const std::filesystem::path& directory);

/// Says whether a text has the form of a device identifier: 24 to 40 of 0-9, A-F and hyphens.
bool isDeviceIdentifier(std::string_view text);

} // namespace tdw::simulator
