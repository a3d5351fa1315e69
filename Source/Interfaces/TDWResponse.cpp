#include "Interfaces/TDWResponse.h"

#include "Interfaces/StandardOutput.h"
#include "Interfaces/TDWServerState.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/PropertyList.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>

const std::string_view kTDWResponseDataKey = "response";
const std::string_view kTDWResponseDeviceIDKey = "deviceID";
const std::string_view kTDWResponseErrorKey = "error";
const std::string_view kTDWResponseServerErrorBlobKey = "serverErrorBlob";
const std::string_view kTDWResponseWarningsKey = "warnings";
const std::string_view kTDWErrorResponseDomainKey = "domain";
const std::string_view kTDWErrorResponseCodeKey = "code";
const std::string_view kTDWErrorResponseInfoKey = "info";
const std::string_view kTDWErrorResponseDateKey = "date";

using tdw::Array;
using tdw::Dictionary;
using tdw::Error;
using tdw::Value;

namespace {

constexpr std::int32_t kCommunicationFailedCode = 2;
constexpr std::int64_t kMissingCode = -1;
constexpr double kLargestExactReal = 9007199254740992.0;

void complainUnlessInitialized(const char* file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (!std::atomic_ref(__gTDWServerInitialized).load())
        tdw::reportError("This server implementation forgot to invoke TDWServerInitialize early in "
                         "the process lifecycle!",
            file, line);
}

/// The errors that an array holds, each turned by `convert`; anything else in it is left out.
template <typename Convert>
Array convertedElements(const Array& array, Convert&& convert)
{
    Array result;
    result.reserve(array.size());
    for (const Value& element : array) {
        if (std::optional<Value> converted = convert(element))
            result.push_back(*std::move(converted));
    }
    return result;
}

/// `userInfo` with whatever stands under the two underlying-error keys turned by `convert`.
template <typename Convert>
Dictionary withUnderlyingErrorsConverted(const Dictionary& userInfo, Convert&& convert)
{
    const Value* underlying = userInfo.find(tdw::kUnderlyingErrorKey);
    if (!underlying && !userInfo.contains(tdw::kMultipleUnderlyingErrorsKey))
        return userInfo;
    Dictionary result = userInfo;
    if (underlying) {
        if (std::optional<Value> converted = convert(*underlying))
            result.set(tdw::kUnderlyingErrorKey, *std::move(converted));
    }
    const Array* elements = userInfo.arrayAt(tdw::kMultipleUnderlyingErrorsKey);
    if (elements && !elements->empty())
        result.set(tdw::kMultipleUnderlyingErrorsKey, convertedElements(*elements, convert));
    return result;
}

int exitStatusForCode(std::int64_t code)
{
    if (code == 0)
        return 1;
    // The absolute value in 64 bits: that of the lowest 32-bit number does not fit into 32.
    return static_cast<int>(std::abs(std::int64_t { static_cast<std::int32_t>(code) }));
}

tdw::Result<void> writeEnvelope(int descriptor, const tdw::Data& bytes)
{
    if (descriptor != STDOUT_FILENO)
        return tdw::writeToDescriptor(descriptor, bytes);
    return tdw::StandardOutputGuard().writeAnswer(bytes);
}

std::string parsedDomain(const Dictionary& dictionary)
{
    if (const std::string* domain = dictionary.stringAt(kTDWErrorResponseDomainKey))
        return *domain;
    tdw::reportError(
        "Error dictionary is missing a domain: " + Value(dictionary).debugDescription());
    return std::string(kTidewellErrorDomain);
}

std::int64_t parsedCode(const Dictionary& dictionary)
{
    const Value* code = dictionary.find(kTDWErrorResponseCodeKey);
    if (!code) {
        tdw::reportError(
            "Error dictionary is missing a code: " + Value(dictionary).debugDescription());
        return kMissingCode;
    }
    if (const tdw::Integer* integer = code->asInteger())
        return static_cast<std::int64_t>(integer->bits());
    if (const auto boolean = code->asBoolean())
        return *boolean ? 1 : 0;
    const auto real = code->asReal();
    return real && std::abs(*real) <= kLargestExactReal ? static_cast<std::int64_t>(*real)
                                                        : kMissingCode;
}

Dictionary parsedUserInfo(const Dictionary& dictionary, const std::optional<Value>& serverErrorBlob)
{
    const Dictionary* info = dictionary.dictionaryAt(kTDWErrorResponseInfoKey);
    Dictionary result = info ? _TDWParseErrorUserInfoDictionary(*info) : Dictionary();
    if (serverErrorBlob)
        result.set(kTDWResponseServerErrorBlobKey, *serverErrorBlob);
    if (result.isEmpty())
        result.set(tdw::kLocalizedFailureReasonErrorKey, "Malformed error response.");
    return result;
}

} // namespace

int TDWSerializeResponse(const Value& payload)
{
    return _TDWSerializeResponse(payload, std::nullopt);
}

int TDWSerializeDeviceResponse(const Value& payload, const Value& deviceID)
{
    return _TDWSerializeResponse(payload, deviceID);
}

int _TDWSerializeResponse(const Value& payload, const std::optional<Value>& deviceID)
{
    complainUnlessInitialized();
    Dictionary envelope;
    if (deviceID)
        envelope.set(kTDWResponseDeviceIDKey, *deviceID);
    envelope.set(kTDWResponseDataKey, payload);
    const auto bytes = tdw::encodeXmlPropertyList(std::move(envelope));
    if (!bytes)
        return TDWSerializeErrorResponse(bytes.error());
    if (const auto written = writeEnvelope(STDOUT_FILENO, *bytes); !written) {
        tdw::reportError("Cannot deliver the response: " + written.error().failureReason());
        return 1;
    }
    return 0;
}

int TDWSerializeErrorResponse(const Error& error)
{
    return _TDWSerializeErrorResponse(error, STDOUT_FILENO);
}

int TDWSerializeErrorResponseToStandardError(const Error& error)
{
    return _TDWSerializeErrorResponse(error, STDERR_FILENO);
}

int _TDWSerializeErrorResponse(const Error& error, int descriptor)
{
    complainUnlessInitialized();
    const auto bytes = tdw::encodeXmlPropertyList(TDWClientErrorResponse(error));
    if (!bytes) {
        tdw::reportError("Unexpected failure to serialize result of "
                         "TDWCreateErrorResponseDictionary for error "
            + error.debugDescription());
    } else if (const auto written = writeEnvelope(descriptor, *bytes); !written) {
        tdw::reportError("Cannot deliver the error response: " + written.error().failureReason());
    }
    return exitStatusForCode(error.code());
}

Dictionary TDWCreateErrorResponseDictionary(const Error& error)
{
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    return { { kTDWErrorResponseDomainKey, error.domain() },
        { kTDWErrorResponseCodeKey, error.code() },
        { kTDWErrorResponseInfoKey, _TDWCreateSerializedErrorUserInfoDictionary(error.userInfo()) },
        { kTDWErrorResponseDateKey, tdw::Date(now) } };
}

Dictionary _TDWCreateSerializedErrorUserInfoDictionary(const Dictionary& userInfo)
{
    return withUnderlyingErrorsConverted(userInfo, [](const Value& value) -> std::optional<Value> {
        if (const Error* error = value.asError())
            return TDWCreateErrorResponseDictionary(*error);
        return std::nullopt;
    });
}

Value TDWClientErrorResponse(const Error& error)
{
    return Dictionary { { kTDWResponseErrorKey, TDWCreateErrorResponseDictionary(error) } };
}

std::optional<Value> TDWResponseUnwrap(const Value& envelope, std::optional<Error>& outError)
{
    if (const Value* response = envelope.find(kTDWResponseDataKey))
        return *response;
    if (const Value* error = envelope.find(kTDWResponseErrorKey)) {
        const Value* blob = envelope.find(kTDWResponseServerErrorBlobKey);
        outError = TDWErrorParse(*error, blob ? std::optional(*blob) : std::nullopt);
        return std::nullopt;
    }
    tdw::reportError("A response must contain either data or an error dictionary, but this "
                     "response has neither! Response: "
        + envelope.debugDescription());
    outError = TDWErrorCreateWithMessage(
        "Failed to communicate with the server.", kCommunicationFailedCode);
    return std::nullopt;
}

Error TDWErrorParse(const Value& errorDictionary, const std::optional<Value>& serverErrorBlob)
{
    static const Dictionary kNothing;
    const Dictionary* given = errorDictionary.asDictionary();
    const Dictionary& dictionary = given ? *given : kNothing;
    // One after the other, so that the diagnostics come in this order.
    const std::string domain = parsedDomain(dictionary);
    const std::int64_t code = parsedCode(dictionary);
    return Error(domain, code, parsedUserInfo(dictionary, serverErrorBlob));
}

Dictionary _TDWParseErrorUserInfoDictionary(const Dictionary& info)
{
    return withUnderlyingErrorsConverted(
        info, [](const Value& value) -> std::optional<Value> { return TDWErrorParse(value); });
}
