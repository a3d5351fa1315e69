#include "Host/TDWStreamingInvocation.h"

#include "Host/EventStreamRun.h"

#include <memory>
#include <utility>

std::optional<tdw::Error> TDWInvokeStreamingServer(const std::string& serverName,
    const tdw::Bundle& bundle, const std::vector<std::string>& arguments,
    const tdw::Queue& waitQueue, const tdw::Queue& callbackQueue,
    std::function<void(const std::string&)> lineHandler,
    std::function<void(std::optional<tdw::Error>)> completionHandler)
{
    auto created = tdw::EventLoop::create();
    if (!created)
        return created.error();
    const auto loop = std::make_shared<tdw::EventLoop>(*std::move(created));
    const auto run = tdw::EventStreamRun::start(*loop,
        { serverName, bundle, arguments, callbackQueue, std::move(lineHandler),
            std::move(completionHandler) });
    if (!run)
        return run.error();
    // The queue goes along, so that its last handle never makes its owner wait for the server.
    waitQueue.async([loop, run = *run, queue = waitQueue] {
        (void)loop->runUntil([&run] { return run->hasEnded(); });
    });
    return std::nullopt;
}
