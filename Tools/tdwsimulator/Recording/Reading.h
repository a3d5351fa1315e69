#pragma once

#include <string_view>

/// What `tdwreader` says about devices, as a property list: every request that it sent with the
/// reply that came, as they were. `tdwsimulator record` makes a scenario of it.
///
///     the list      { "Devices": [ { "UDID", "Connections": ["usb", "network"] } ] }
///     one device    { "UDID", "HasPairRecord", "HasSession", "SessionError"?, "UsesTLS"?,
///                     "Exchanges": [ { "At", "HasSession", "Request", "Reply"? } ] }
///     a failure     { "Failure": a sentence }
///
/// An exchange without a reply is one whose connection the device ended.
namespace tdw::simulator::reading {

inline constexpr std::string_view kDevices = "Devices";
inline constexpr std::string_view kUdid = "UDID";
inline constexpr std::string_view kConnections = "Connections";
inline constexpr std::string_view kHasPairRecord = "HasPairRecord";
inline constexpr std::string_view kHasSession = "HasSession";
/// The device's own name for it.
inline constexpr std::string_view kSessionError = "SessionError";
inline constexpr std::string_view kUsesTls = "UsesTLS";
inline constexpr std::string_view kExchanges = "Exchanges";
/// `kLockdown`, or the name of a service.
inline constexpr std::string_view kAt = "At";
inline constexpr std::string_view kRequest = "Request";
inline constexpr std::string_view kReply = "Reply";
inline constexpr std::string_view kFailure = "Failure";

inline constexpr std::string_view kLockdown = "lockdown";
inline constexpr std::string_view kCompanionProxy = "com.apple.companion_proxy";
inline constexpr std::string_view kSpringboard = "com.apple.springboardservices";

/// What a line on the reader's standard error begins with that says what it does now.
inline constexpr std::string_view kStage = "tdwreader: ";

/// The argument that asks for previews of the wallpapers. Their first bytes are all that is told.
inline constexpr std::string_view kWithWallpaper = "--wallpaper";

} // namespace tdw::simulator::reading
