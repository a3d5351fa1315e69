#include "Support/TDWErrorMessages.h"

#include "Platform/Values/Value.h"

#include <algorithm>
#include <span>
#include <string_view>

namespace {

struct Message {
    std::int32_t code;
    std::string_view reason;
};

// Texts that several libraries' codes share.
constexpr std::string_view kSuccess = "Success (this shouldn’t be an error, please report this).";
constexpr std::string_view kInvalidArgument = "Invalid argument.";
constexpr std::string_view kSslError = "Connection failed (SSL error).";
constexpr std::string_view kPlistError = "The data was not in the expected format (plist error).";
constexpr std::string_view kNotEnoughData = "Not enough data.";

constexpr Message kDeviceMessages[] = {
    { 0, kSuccess },
    { -1, kInvalidArgument },
    { -2, "Unknown device error from libimobiledevice." },
    { -3, "The device is not available." },
    { -4, kNotEnoughData },
    { -5, "Connection refused." },
    { -6, kSslError },
    { -7, "Device connection timeout." },
};

constexpr Message kLockdownMessages[] = {
    { 0, kSuccess },
    { -1, kInvalidArgument },
    { -2, "Invalid configuration." },
    { -3, kPlistError },
    { -4, "Pairing failed." },
    { -5, kSslError },
    { -6, "Dictionary error." },
    { -7, "Lockdown receive timeout." },
    { -8,
        "Failed to connect to the device. This can occur if the app doesn’t have local network access. Make sure local network is allowed for this app in System Settings > Privacy & Security > Local Network." },
    { -9, "Invalid session." },
    { -10, "Invalid response." },
    { -11, "Missing key." },
    { -12, "Missing value." },
    { -13, "Get prohibited." },
    { -14, "Set prohibited." },
    { -15, "Remove prohibited." },
    { -16, "Immutable value." },
    { -17, "The device is locked." },
    { -18, "The user has denied pairing." },
    { -19, "Waiting for pairing dialog response." },
    { -20, "Missing host ID." },
    { -21, "Invalid host ID." },
    { -22, "The session is already active." },
    { -23, "The session is inactive." },
    { -24, "Missing session ID." },
    { -25, "Invalid session ID." },
    { -26, "The service is missing." },
    { -27, "The service is invalid." },
    { -28, "Service limit." },
    { -29, "Missing pairing record." },
    { -30, "Pairing record failed." },
    { -31, "Invalid pairing record." },
    { -32, "Invalid activation record." },
    { -33, "Missing activation record." },
    { -34, "Service prohibited." },
    { -35, "The device is locked (LOCKDOWN_E_ESCROW_LOCKED)." },
    { -36, "Pairing requires the device to be plugged in with a cable." },
    { -37, "The device is blocked by Find My." },
    { -38, "The device’s managed configuration is blocking the connection." },
    { -39, "Managed configuration challenge required." },
    { -256, "Unknown lockdownd error from libimobiledevice." },
};

constexpr Message kCompanionProxyMessages[] = {
    { 0, kSuccess },
    { -1, kInvalidArgument },
    { -2, kPlistError },
    { -3, "Connection failed (mux error)." },
    { -4, kSslError },
    { -5, kNotEnoughData },
    { -6, "Companion connection timeout." },
    { -7, "Operation already in progress." },
    { -100, "No companion devices were found." },
    { -101, "Unsupported companion device key." },
    { -102, "Timeout waiting for companion device reply." },
    { -256, "Unknown companion proxy error from libimobiledevice." },
};

constexpr Message kSBServicesMessages[] = {
    { 0, kSuccess },
    { -1, kInvalidArgument },
    { -2, kPlistError },
    { -3, "Connection failed." },
    { -256, "Unknown sbservices error from libimobiledevice." },
};

tdw::Dictionary userInfoFor(
    std::int32_t code, std::span<const Message> messages, std::string_view otherwise)
{
    const auto found = std::find_if(messages.begin(), messages.end(),
        [code](const Message& message) { return message.code == code; });
    return { { tdw::kLocalizedFailureReasonErrorKey,
        found == messages.end() ? otherwise : found->reason } };
}

} // namespace

tdw::Dictionary _TDWMapDeviceError(std::int32_t code)
{
    return userInfoFor(code, kDeviceMessages, "Unknown device error.");
}

tdw::Dictionary _TDWMapLockdownError(std::int32_t code)
{
    return userInfoFor(code, kLockdownMessages, "Unknown lockdownd error.");
}

tdw::Dictionary _TDWMapCompanionProxyError(std::int32_t code)
{
    return userInfoFor(code, kCompanionProxyMessages, "Unknown companion proxy error.");
}

tdw::Dictionary _TDWMapSBServicesError(std::int32_t code)
{
    return userInfoFor(code, kSBServicesMessages, "Unknown sbservices error.");
}
