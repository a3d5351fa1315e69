#include "Host/ServerEnvelope.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/Values/PropertyList.h"
#include "Platform/Values/Utf8.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"

#include <cstring>
#include <span>
#include <utility>

namespace tdw {

namespace {

bool isBlank(const std::string& text)
{
    return text.find_first_not_of(" \t\n\v\f\r") == std::string::npos;
}

/// Drops the beginning of a character at the end of a text that was cut.
void dropCutCharacter(std::string& text)
{
    const auto byteAt = [&text](std::size_t index) {
        return static_cast<unsigned char>(text[index]);
    };
    std::size_t begin = text.size();
    while (begin > 0 && text.size() - begin < 3 && (byteAt(begin - 1) & 0xC0U) == 0x80U)
        --begin;
    if (begin == 0)
        return;
    const unsigned lead = byteAt(--begin);
    const std::size_t length = lead < 0xC2 || lead > 0xF4 ? 1
        : lead < 0xE0                                     ? 2
        : lead < 0xF0                                     ? 3
                                                          : 4;
    if (length > text.size() - begin)
        text.resize(begin);
}

/// The text that can be had of standard error: none where bytes in the middle are not UTF-8. A NUL,
/// which no envelope can hold, is replaced.
std::string textOf(const Data& bytes)
{
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    dropCutCharacter(text);
    if (!isValidUtf8(text))
        return {};
    for (std::size_t at = text.find('\0'); at != std::string::npos; at = text.find('\0', at))
        text.replace(at, 1, "\uFFFD");
    return text;
}

/// The error's cause, where a signal ended the server.
Error killedError(const std::string& serverName, int signalNumber)
{
    const char* name = ::sigabbrev_np(signalNumber);
    return TDWErrorCreateWithMessage("Server " + serverName + " was killed by signal "
            + std::to_string(signalNumber) + (name ? std::string(" (SIG") + name + ")" : "") + ".",
        signalNumber);
}

/// The message for a run that gave no envelope.
std::string failureMessage(
    const std::string& serverName, std::int32_t status, const std::function<Data()>& standardError)
{
    if (status == kServerWithoutNameStatus)
        return "Server " + serverName
            + " failed to determine its own server name. This is a serious bug that should never "
              "occur in production (famous last words).";
    if (status == kUnknownServerNameStatus)
        return "Server name is not valid: " + serverName
            + ". Make sure main() in tdwserver is checking for it and that it's declared in the "
              "TDWServer string enum.";
    std::string text = textOf(standardError());
    if (!isBlank(text))
        return text;
    return "Server " + serverName + " terminated unexpectedly with code " + std::to_string(status);
}

} // namespace

Value envelopeOfRun(const std::string& serverName, const std::optional<Data>& output,
    const Termination& termination, const std::function<Data()>& standardError)
{
    if (output) {
        if (auto decoded = decodePropertyList(*output))
            return *std::move(decoded);
    }
    const std::int32_t status = termination.status;
    Dictionary userInfo { { kLocalizedFailureReasonErrorKey,
        failureMessage(serverName, status, standardError) } };
    if (termination.bySignal)
        userInfo.set(kUnderlyingErrorKey, killedError(serverName, status));
    return TDWClientErrorResponse(TDWErrorCreateWithInfo(status, &userInfo));
}

std::optional<Value> envelopeAmong(std::string_view text)
{
    constexpr std::string_view kBegin = "<?xml";
    constexpr std::string_view kEnd = "</plist>";
    // Neither can stand in a text inside the document, where "<" is written as an entity.
    const std::size_t begin = text.rfind(kBegin);
    const std::size_t end = begin == std::string_view::npos ? begin : text.find(kEnd, begin);
    if (end != std::string_view::npos)
        text = text.substr(begin, end + kEnd.size() - begin);
    auto decoded = decodePropertyList(std::as_bytes(std::span(text)));
    return decoded ? std::optional(*std::move(decoded)) : std::nullopt;
}

std::optional<Error> errorInEnvelope(const Value& envelope)
{
    std::optional<Error> error;
    (void)TDWResponseUnwrap(envelope, error);
    return error;
}

} // namespace tdw
