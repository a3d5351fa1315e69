#include "Events/DirectFeed.h"

#include "Devices/RequestErrors.h"
#include "Host/TDWStreamingInvocation.h"
#include "Interfaces/TDWServer.h"
#include "Platform/Queue.h"
#include "Support/TDWErrorHelpers.h"

#include <utility>

namespace tdw::cli {

struct DirectFeed::State {
    service::DevicePresence presence;
    std::vector<DeviceEvent> events;
    std::optional<Error> end;
};

Result<std::unique_ptr<DirectFeed>> DirectFeed::create()
{
    auto loop = TDW_TRY(CallbackLoop::create());
    auto state = std::make_shared<State>();
    const auto received = [state](const std::string& line) {
        for (const std::string& news : state->presence.received(line)) {
            if (auto event = service::parseEventLine(news))
                state->events.push_back(*std::move(event));
        }
    };
    const auto ended = [state](const std::optional<Error>& error) {
        state->end = error.value_or(
            TDWErrorCreateWithMessage("The events server ended without a reason.", 0));
    };
    // The run alone keeps its queues, so that nothing waits for the server when the tool ends; the
    // server ends when nobody reads what it writes.
    const auto error = TDWInvokeStreamingServer(
        std::string(kTidewellServerEvents), Bundle::mainBundle(), {}, Queue::serial("TDWEvents"),
        Queue::serial("TDWEventLines"),
        [loop, received](
            const std::string& line) { loop.add([received, line] { received(line); }); },
        [loop, ended](
            const std::optional<Error>& reason) { loop.add([ended, reason] { ended(reason); }); });
    if (error)
        return serverNotRun(kTidewellServerEvents, *error);
    return std::unique_ptr<DirectFeed>(new DirectFeed(std::move(loop), std::move(state)));
}

DirectFeed::DirectFeed(CallbackLoop loop, std::shared_ptr<State> state)
    : m_loop(std::move(loop))
    , m_state(std::move(state))
{
}

Result<std::vector<DeviceEvent>> DirectFeed::take()
{
    m_loop.run();
    // What came before the end is told before it.
    if (m_state->events.empty() && m_state->end)
        return *m_state->end;
    if (m_state->end)
        m_loop.add([] {});
    return std::exchange(m_state->events, {});
}

} // namespace tdw::cli
