#include "Support/TDWErrorKinds.h"

#include "Platform/Values/Value.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <initializer_list>

namespace tdw {

namespace {

constexpr std::string_view kServerTimeoutReason = "Server timeout.";
constexpr std::int32_t kServerTimeoutCode = 1;

constexpr std::string_view kServerNotFoundReason = "Server executable not found for \"";
constexpr std::int32_t kServerNotFoundCode = 1;

constexpr std::string_view kMissingWirelessValueReason
    = " wireless domain key had missing or invalid value";
constexpr std::int32_t kMissingWirelessValueCode = -1;

// How `TDWErrorCreate` describes the failed call: "API: %s | CODE: %d".
constexpr std::string_view kApiPrefix = "API: ";
constexpr std::string_view kApiEnd = " | CODE: ";

bool isOneOf(const Error& error, std::string_view domain, std::initializer_list<std::int64_t> codes)
{
    return error.domain() == domain
        && std::find(codes.begin(), codes.end(), error.code()) != codes.end();
}

bool isOwn(const Error& error, std::int64_t code)
{
    return isOneOf(error, kTidewellErrorDomain, { code });
}

/// Whether it is one of the wallpaper client's, whose codes are in no domain of their own.
bool isOfWallpaper(const Error& error, std::initializer_list<std::int64_t> codes)
{
    return isOneOf(error, kTidewellErrorDomain, codes)
        && failedApi(error).starts_with("wallpaper_client_");
}

} // namespace

Error serverTimeoutError()
{
    return TDWErrorCreateWithMessage(kServerTimeoutReason, kServerTimeoutCode);
}

bool isServerTimeout(const Error& error)
{
    return isOwn(error, kServerTimeoutCode) && error.failureReason() == kServerTimeoutReason;
}

Error serverNotFoundError(std::string_view serverName, const Error& cause)
{
    const Dictionary userInfo { { kLocalizedFailureReasonErrorKey,
                                    std::string(kServerNotFoundReason) + std::string(serverName)
                                        + '"' },
        { kUnderlyingErrorKey, cause } };
    return TDWErrorCreateWithInfo(kServerNotFoundCode, &userInfo);
}

bool isServerNotFound(const Error& error)
{
    return isOwn(error, kServerNotFoundCode)
        && error.failureReason().starts_with(kServerNotFoundReason);
}

bool isServerToolRefusal(const Error& error)
{
    return isOneOf(
        error, kTidewellErrorDomain, { kServerWithoutNameStatus, kUnknownServerNameStatus });
}

Error missingWirelessValueError(std::string_view key)
{
    return TDWErrorCreateWithMessage(
        std::string(key) + std::string(kMissingWirelessValueReason), kMissingWirelessValueCode);
}

bool isMissingWirelessValue(const Error& error, std::string_view key)
{
    return isOwn(error, kMissingWirelessValueCode)
        && error.failureReason() == std::string(key) + std::string(kMissingWirelessValueReason);
}

bool isCompanionLookup(const Error& error)
{
    return failedApi(error) == kCompanionLookupApi;
}

std::string failedApi(const Error& error)
{
    const std::string* description = error.userInfo().stringAt(kDebugDescriptionErrorKey);
    if (!description || !description->starts_with(kApiPrefix))
        return {};
    const auto end = description->find(kApiEnd);
    return end == std::string::npos
        ? std::string()
        : description->substr(kApiPrefix.size(), end - kApiPrefix.size());
}

bool isDeviceNotFound(const Error& error)
{
    return isOneOf(error, kTDWDeviceErrorDomain, { -3 });
}

bool isDeviceTimeout(const Error& error)
{
    return isOneOf(error, kTDWDeviceErrorDomain, { -7 })
        || isOneOf(error, kTDWLockdownErrorDomain, { -7 })
        || isOneOf(error, kTDWCompanionProxyErrorDomain, { -6, -102 })
        || isOfWallpaper(error, { -6 });
}

bool isUnpairedDevice(const Error& error)
{
    return error.domain() == kTDWLockdownErrorDomain
        && TDWLockdownErrorIsUnpairedDeviceError(static_cast<std::int32_t>(error.code()));
}

bool isForgottenPairing(const Error& error)
{
    return isOneOf(error, kTDWLockdownErrorDomain, { -2, -21 });
}

bool isConnectionFailure(const Error& error)
{
    return isOneOf(error, kTDWDeviceErrorDomain, { -2, -4, -5, -6 })
        || isOneOf(error, kTDWLockdownErrorDomain, { -3, -5, -8, -256 })
        || isOneOf(error, kTDWCompanionProxyErrorDomain, { -3, -4, -5, -256 })
        || isOfWallpaper(error, { -3, -4, -5, -256 });
}

} // namespace tdw
