#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Value.h"

#include <optional>
#include <string_view>

/// The response envelope: the one document that says how a request ended.
///
///     data envelope    { "response": payload, "deviceID": record of the device (optional) }
///     error envelope   { "error": { "domain", "code", "info", "date" } }
///
/// A server writes one envelope to its standard output; the host hands it on; an application
/// unwraps it:
///
///     std::optional<tdw::Error> error;
///     if (const auto payload = TDWResponseUnwrap(envelope, error))
///         … else …
///
/// All functions may be called from any thread.

extern "C" {

/// The keys of an envelope, and of the warnings in a payload.
TDW_EXPORT extern const std::string_view kTDWResponseDataKey;
TDW_EXPORT extern const std::string_view kTDWResponseDeviceIDKey;
TDW_EXPORT extern const std::string_view kTDWResponseErrorKey;
TDW_EXPORT extern const std::string_view kTDWResponseServerErrorBlobKey;
TDW_EXPORT extern const std::string_view kTDWResponseWarningsKey;

/// The keys of an error dictionary: string, integer, dictionary, date.
TDW_EXPORT extern const std::string_view kTDWErrorResponseDomainKey;
TDW_EXPORT extern const std::string_view kTDWErrorResponseCodeKey;
TDW_EXPORT extern const std::string_view kTDWErrorResponseInfoKey;
TDW_EXPORT extern const std::string_view kTDWErrorResponseDateKey;

/// Writes a data envelope to standard output, with one write call.
/// @return the status for the process: 0 once written; where the payload cannot be serialized, the
///         status of the error envelope written in its place; 1 where standard output cannot be
///         written (a diagnostic says why)
TDW_EXPORT int TDWSerializeResponse(const tdw::Value& payload);

/// The same with the identity record of the device that answered.
TDW_EXPORT int TDWSerializeDeviceResponse(const tdw::Value& payload, const tdw::Value& deviceID);

/// The shared body of the two.
TDW_EXPORT int _TDWSerializeResponse(
    const tdw::Value& payload, const std::optional<tdw::Value>& deviceID);

/// Writes an error envelope to standard output, with one write call. An error that holds something
/// other than property-list values cannot be written; a diagnostic says so.
/// @return the status that belongs to the error, whatever became of the envelope: the absolute
///         value of the low 32 bits of its code, or 1 for code 0
TDW_EXPORT int TDWSerializeErrorResponse(const tdw::Error& error);

/// The same, to standard error.
TDW_EXPORT int TDWSerializeErrorResponseToStandardError(const tdw::Error& error);

/// The shared body of the two.
/// @param descriptor where to write; it stays the caller's
TDW_EXPORT int _TDWSerializeErrorResponse(const tdw::Error& error, int descriptor);

/// The error dictionary of an error, dated now; underlying errors become nested dictionaries.
TDW_EXPORT tdw::Dictionary TDWCreateErrorResponseDictionary(const tdw::Error& error);

/// A user info with its underlying errors as error dictionaries.
TDW_EXPORT tdw::Dictionary _TDWCreateSerializedErrorUserInfoDictionary(
    const tdw::Dictionary& userInfo);

/// An error envelope in memory, for failures outside a server.
TDW_EXPORT tdw::Value TDWClientErrorResponse(const tdw::Error& error);

/// Opens an envelope.
/// @param outError set when none is returned; otherwise not touched
/// @return the payload ("response" wins over "error"), or none. An envelope with neither gives
///         "Failed to communicate with the server." (code 2) and a diagnostic.
TDW_EXPORT std::optional<tdw::Value> TDWResponseUnwrap(
    const tdw::Value& envelope, std::optional<tdw::Error>& outError);

/// Makes an error of an error dictionary. Never fails: what is missing or malformed becomes
/// `kTidewellErrorDomain`, code -1 and the reason "Malformed error response.".
/// @param serverErrorBlob kept in the user info under `kTDWResponseServerErrorBlobKey`
TDW_EXPORT tdw::Error TDWErrorParse(const tdw::Value& errorDictionary,
    const std::optional<tdw::Value>& serverErrorBlob = std::nullopt);

/// A user info with its nested error dictionaries as errors again.
TDW_EXPORT tdw::Dictionary _TDWParseErrorUserInfoDictionary(const tdw::Dictionary& info);
}
