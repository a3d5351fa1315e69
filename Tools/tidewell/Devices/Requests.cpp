#include "Devices/Requests.h"

#include "Devices/RequestErrors.h"
#include "Devices/ServiceRequests.h"
#include "Host/TDWServerInvocation.h"
#include "Interfaces/TDWResponse.h"

#include <cstdint>
#include <limits>
#include <optional>

namespace tdw::cli {

namespace {

/// No process ends with this status; it stays where nothing was started.
constexpr std::int32_t kNothingStarted = std::numeric_limits<std::int32_t>::min();

} // namespace

Requests::Requests(Road road)
    : m_bundle(Bundle::mainBundle())
    , m_service(road == Road::Service ? std::make_shared<const ServiceRequests>() : nullptr)
{
}

Result<Value> Requests::send(
    std::string_view server, const std::vector<std::string>& arguments) const
{
    return m_service ? m_service->send(server, arguments)
                     : sendDirectly(std::string(server), arguments);
}

Result<Value> Requests::sendDirectly(
    const std::string& server, const std::vector<std::string>& arguments) const
{
    std::optional<Error> error;
    if (!TDWValidateServerExecutable(server, m_bundle, error))
        return serverNotRun(server, *error);

    std::int32_t status = kNothingStarted;
    const Value envelope = TDWInvokeServer(server, m_bundle, arguments, nullptr, &status);
    auto payload = TDWResponseUnwrap(envelope, error);
    if (payload)
        return *std::move(payload);
    if (status == kNothingStarted)
        return serverNotRun(server, *error);
    return *std::move(error);
}

} // namespace tdw::cli
