#pragma once

#include "Model/Fault.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <cstddef>
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

/// Whose multiplexer daemon the simulator's own one behaves as.
enum class MultiplexerRelease {
    Debian12, ///< tells listeners of a saved record
    Debian13, ///< answers 2 to a saved record, 0 to one not saved, and tells no listener
};
inline constexpr std::string_view kMultiplexerNames[] = { "debian12", "debian13" };

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
    AfterFirstUnlock, ///< locked, but unlocked once since its start: all but new hosts are served
    BeforeFirstUnlock, ///< sessions, but no services until somebody unlocks it once
    ForgotHostInTls, ///< the same as `ForgotHost`, but shows it by ending TLS
};
inline constexpr std::string_view kTrustNames[] = { "trusts", "asks", "denies", "locked",
    "escrow-locked", "find-my", "managed", "managed-challenge", "forgot-host", "usb-only",
    "after-first-unlock", "before-first-unlock", "forgot-host-tls" };

/// A watch behind a phone, as the companion proxy tells of it.
struct WatchDescription {
    std::string udid;
    Dictionary values;
    Dictionary errors; ///< keys that are answered with an error, and its name
};

inline constexpr std::string_view kGlobalDomain {};
inline constexpr std::string_view kBatteryDomain = "com.apple.mobile.battery";
inline constexpr std::string_view kWirelessDomain = "com.apple.mobile.wireless_lockdown";

/// How fast the USB connection is, with libusb's numbers.
enum class UsbSpeed { Low = 1, Full, High, Super };
inline constexpr std::string_view kUsbSpeedNames[] = { "low", "full", "high", "super" };

/// In pixels.
struct PictureSize {
    std::size_t width = 0;
    std::size_t height = 0;
};

struct DeviceDescription {
    std::string udid;
    std::vector<ConnectionType> connections { ConnectionType::Usb };
    std::map<std::string, Dictionary, std::less<>> domains; ///< the values that lockdown knows
    std::optional<std::vector<std::string>> publicKeys; ///< told every host; none: the usual ones
    bool isPaired = true;
    Trust trust = Trust::Trusts;
    std::optional<std::uint64_t> acceptAfter; ///< Asks: the request that finds the dialog accepted
    bool reconnectsAfterTrust = false; ///< leaves when its user trusts a host, and comes back
    bool usesTls = true;
    bool repliesWithResult = false; ///< as systems before 5 did
    UsbSpeed usbSpeed = UsbSpeed::High;
    std::optional<std::string> networkAddress; ///< 127.x.y.z; none: one that is free
    std::vector<WatchDescription> watches;
    std::uint64_t orientation = 1; ///< how it is held: 1 is upright
    std::optional<Data> wallpaper; ///< a PNG image for all places; none: one is drawn
    std::optional<PictureSize> wallpaperSize; ///< of the drawn one; none: that of its class
};

/// Everything that a simulation begins with.
struct Scenario {
    AddressLayout addressLayout = defaultAddressLayout();
    MultiplexerRelease multiplexer = MultiplexerRelease::Debian12;
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
