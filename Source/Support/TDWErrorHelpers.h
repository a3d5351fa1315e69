#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Error.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Errors of the framework, and of the device libraries, in words that tell the user what to do.
///
/// A failed library call becomes an error by its own name and code:
///
///     return TDWErrorCreate("lockdownd_get_value", code);
///
/// The functions may be called from any thread, except that setting `gTDWErrorDetail` and making
/// the error that takes it up belong to one thread.

extern "C" {

/// The domain of the framework's own errors, and the base of the others.
TDW_EXPORT extern const std::string_view kTidewellErrorDomain;
/// The domains of the device libraries' codes.
TDW_EXPORT extern const std::string_view kTDWDeviceErrorDomain;
TDW_EXPORT extern const std::string_view kTDWLockdownErrorDomain;
TDW_EXPORT extern const std::string_view kTDWCompanionProxyErrorDomain;
TDW_EXPORT extern const std::string_view kTDWSBServicesErrorDomain;

/// In the user info of a library error: what was being done, such as the key that was being read.
TDW_EXPORT extern const std::string_view kTDWErrorDetailKey;

/// What the next `TDWErrorCreate` puts under `kTDWErrorDetailKey`: null, or a NUL-terminated UTF-8
/// string from `strdup`, which this variable owns. `TDWErrorCreate` frees it and sets null.
TDW_EXPORT extern char* gTDWErrorDetail;

/// The domain that the name of a library function belongs to, by its prefix.
/// @param apiName not null
TDW_EXPORT std::string_view TDWErrorDomainForAPI(const char* apiName);

/// A user info with the failure reason of `code` in `domain`. A domain without a table of messages
/// is reported on standard error and gets "Unknown error (not mapped).".
TDW_EXPORT tdw::Dictionary TDWMapError(std::string_view domain, std::int32_t code);

/// The error of a failed library function, or of a step of our own that has a code.
/// Takes up and clears `gTDWErrorDetail`.
/// @param apiName not null; the function's own name
/// @param code the function's result, unchanged
TDW_EXPORT tdw::Error TDWErrorCreate(const char* apiName, std::int32_t code);

/// An error of the framework's own, with `message` as its failure reason.
TDW_EXPORT tdw::Error TDWErrorCreateWithMessage(std::string_view message, std::int32_t code);

/// An error of the framework's own with a user info of the caller's.
/// @param userInfo may be null, for none
TDW_EXPORT tdw::Error TDWErrorCreateWithInfo(std::int32_t code, const tdw::Dictionary* userInfo);

/// Whether a lockdown code means that the device does not, or not yet, trust this host.
TDW_EXPORT bool TDWLockdownErrorIsUnpairedDeviceError(std::int32_t code);

/// Adds the error dictionary of `error` to the warnings of a payload. A value under "warnings" that
/// is no array is replaced. Null for either argument changes nothing and is reported on standard
/// error.
TDW_EXPORT void TDWAppendErrorToWarningsArray(tdw::Dictionary* payload, const tdw::Error* error);
}

namespace tdw {

/// Sets `gTDWErrorDetail` for the library error that is about to be made.
TDW_EXPORT void setErrorDetail(std::string_view detail);

} // namespace tdw
