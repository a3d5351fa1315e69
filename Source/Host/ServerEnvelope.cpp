#include "Host/ServerEnvelope.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/PropertyList.h"
#include "Platform/Text.h"
#include "Support/TDWErrorHelpers.h"

#include <utility>

namespace tdw {

namespace {

/// The statuses by which the server tool says that it never got as far as a server.
constexpr std::int32_t kStatusNoServerName = 111;
constexpr std::int32_t kStatusUnknownServerName = 123;

bool isBlank(const std::string& text)
{
    return text.find_first_not_of(" \t\n\v\f\r") == std::string::npos;
}

std::string textOf(const Data& bytes)
{
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return isValidUtf8(text) ? text : std::string();
}

/// The message for a run that gave no envelope.
std::string failureMessage(
    const std::string& serverName, std::int32_t status, const std::function<Data()>& standardError)
{
    if (status == kStatusNoServerName)
        return "Server " + serverName
            + " failed to determine its own server name. This is a serious bug that should never "
              "occur in production (famous last words).";
    if (status == kStatusUnknownServerName)
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
    std::int32_t status, const std::function<Data()>& standardError)
{
    if (output) {
        if (auto decoded = decodePropertyList(*output))
            return *std::move(decoded);
    }
    const auto message = failureMessage(serverName, status, standardError);
    return TDWClientErrorResponse(TDWErrorCreateWithMessage(message, status));
}

} // namespace tdw
