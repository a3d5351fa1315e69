#include "Host/TDWStreamingInvocation.h"

#include "Host/StreamingServerRun.h"

#include <utility>

std::optional<tdw::Error> TDWInvokeStreamingServer(const std::string& serverName,
    const tdw::Bundle& bundle, const std::vector<std::string>& arguments,
    const tdw::Queue& waitQueue, const tdw::Queue& callbackQueue,
    std::function<void(const std::string&)> lineHandler,
    std::function<void(std::optional<tdw::Error>)> completionHandler)
{
    const auto run = tdw::startStreamingServer({ serverName, bundle, arguments, waitQueue,
        callbackQueue, std::move(lineHandler), std::move(completionHandler) });
    return run ? std::nullopt : std::optional(run.error());
}
