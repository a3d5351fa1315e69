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
    /// Tells listeners of a saved record.
    Debian12,
    /// Answers 2 to a saved record, 0 to one not saved, and tells no listener.
    Debian13,
};
inline constexpr std::string_view kMultiplexerNames[] = { "debian12", "debian13" };

/// The layout that the device library of this build wants.
AddressLayout defaultAddressLayout();

/// How a device answers a host that wants to be trusted, or that was trusted once.
enum class Trust {
    /// Trusts any host at once.
    Trusts,
    /// Shows its dialog; the control socket (or `acceptAfter`) answers it.
    Asks,
    /// Its user has refused.
    Denies,
    /// Locked by a passcode: nothing is served.
    Locked,
    /// Not unlocked since it started: no session and no service.
    EscrowLocked,
    /// Refuses to pair because of its lost mode.
    FindMyLocked,
    /// A management profile forbids pairing.
    Managed,
    /// A management profile wants a challenge answered first.
    ManagedChallenge,
    /// Was reset: does not know this host any more, and trusts it when asked again.
    ForgotHost,
    /// Does not pair over the network.
    UsbOnly,
    /// Locked, but unlocked once since its start: all but new hosts are served.
    AfterFirstUnlock,
    /// Sessions, but no services until it is unlocked once.
    BeforeFirstUnlock,
    /// The same as `ForgotHost`, but shows it by ending TLS.
    ForgotHostInTls,
};
inline constexpr std::string_view kTrustNames[] = { "trusts", "asks", "denies", "locked",
    "escrow-locked", "find-my", "managed", "managed-challenge", "forgot-host", "usb-only",
    "after-first-unlock", "before-first-unlock", "forgot-host-tls" };

/// A companion behind a phone, as the companion proxy describes it.
struct CompanionDescription {
    std::string udid;
    Dictionary values;
    /// Keys that are answered with an error, and its name.
    Dictionary errors;
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
    /// The values that lockdown knows.
    std::map<std::string, Dictionary, std::less<>> domains;
    /// Told every host; none: the usual ones.
    std::optional<std::vector<std::string>> publicKeys;
    bool isPaired = true;
    Trust trust = Trust::Trusts;
    /// Asks: the request that finds the dialog accepted.
    std::optional<std::uint64_t> acceptAfter;
    /// Leaves when its user trusts a host, and comes back.
    bool reconnectsAfterTrust = false;
    bool usesTls = true;
    /// Replies as systems before iOS 5 do.
    bool repliesWithResult = false;
    UsbSpeed usbSpeed = UsbSpeed::High;
    /// An address 127.x.y.z; none: one that is free.
    std::optional<std::string> networkAddress;
    std::vector<CompanionDescription> companions;
    /// How it is held: 1 is upright.
    std::uint64_t orientation = 1;
    /// A PNG image for all places; none: one is drawn.
    std::optional<Data> wallpaper;
    /// Of the drawn one; none: that of its class.
    std::optional<PictureSize> wallpaperSize;
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
