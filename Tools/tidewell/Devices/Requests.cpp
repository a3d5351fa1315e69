#include "Devices/Requests.h"

#include "Errors/CommandLineError.h"
#include "Host/TDWServerInvocation.h"
#include "Interfaces/TDWResponse.h"

#include <cstdint>
#include <limits>
#include <optional>

namespace tdw::cli {

namespace {

/// No process ends with this status; it stays where nothing was started.
constexpr std::int32_t kNothingStarted = std::numeric_limits<std::int32_t>::min();

Error notRun(const std::string& server, const Error& cause)
{
    return commandLineError({ .status = ExitStatus::ServerNotRun,
        .reason = "Cannot start \"" + server + "\"",
        .advice = "Tidewell seems not to be installed completely; install it again.",
        .cause = cause });
}

} // namespace

Requests::Requests()
    : m_bundle(Bundle::mainBundle())
{
}

Result<Value> Requests::send(
    std::string_view server, const std::vector<std::string>& arguments) const
{
    const std::string name(server);
    std::optional<Error> error;
    if (!TDWValidateServerExecutable(name, m_bundle, error))
        return notRun(name, *error);

    std::int32_t status = kNothingStarted;
    const Value envelope = TDWInvokeServer(name, m_bundle, arguments, nullptr, &status);
    auto payload = TDWResponseUnwrap(envelope, error);
    if (payload)
        return *std::move(payload);
    if (status == kNothingStarted)
        return notRun(name, *error);
    return *std::move(error);
}

} // namespace tdw::cli
