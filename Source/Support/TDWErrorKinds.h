#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Error.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Which failure an error is.
///
///     if (tdw::isServerTimeout(error))
///         … ask again …
///
/// An error is known by its domain and code. Where several failures share those, it is known by its
/// failure reason or by the function that failed. These texts and codes stand here alone, for
/// the code that makes such an error and the code that looks at one.
///
/// A predicate looks at the error itself, not at its underlying errors. All functions may be called
/// from any thread.
namespace tdw {

/// The exit statuses by which the server tool says that it has no server to run.
inline constexpr std::int32_t kServerWithoutNameStatus = 111;
inline constexpr std::int32_t kUnknownServerNameStatus = 123;

/// A server was ended by its clock, or by the service: "Server timeout.", code 1.
TDW_EXPORT Error serverTimeoutError();
TDW_EXPORT bool isServerTimeout(const Error& error);

/// No executable has the name of a server: "Server executable not found for "…"", code 1.
/// @param cause kept as the underlying error
TDW_EXPORT Error serverNotFoundError(std::string_view serverName, const Error& cause);
TDW_EXPORT bool isServerNotFound(const Error& error);

/// The server tool has no server of that name, or was started without a name. The code is one of
/// the two exit statuses above.
TDW_EXPORT bool isServerToolRefusal(const Error& error);

/// A device's wireless settings lack `key`, or have a value of another type under it. Code -1.
TDW_EXPORT Error missingWirelessValueError(std::string_view key);
TDW_EXPORT bool isMissingWirelessValue(const Error& error, std::string_view key);

/// The watches of a phone could not be looked up; a warning of the device info server.
inline constexpr const char* kCompanionLookupApi = "_TDWFetchCompanionDeviceIdentifiers";
TDW_EXPORT bool isCompanionLookup(const Error& error);

/// The function that failed, as `TDWErrorCreate` was told. Empty for errors made otherwise.
TDW_EXPORT std::string failedApi(const Error& error);

/// The multiplexer has no such device, or there is no multiplexer.
TDW_EXPORT bool isDeviceNotFound(const Error& error);

/// The device, or a watch behind it, did not answer the device library in time.
TDW_EXPORT bool isDeviceTimeout(const Error& error);

/// The device does not, or not yet, trust this host.
TDW_EXPORT bool isUnpairedDevice(const Error& error);

/// The pairing is gone on one side: this host has no record, or the device does not know it.
TDW_EXPORT bool isForgottenPairing(const Error& error);

/// The connection to the device failed or ended. A device that was pulled out causes these errors,
/// and so do others: look whether the device is still listed.
TDW_EXPORT bool isConnectionFailure(const Error& error);

} // namespace tdw
