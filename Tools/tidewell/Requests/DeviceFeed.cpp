#include "Requests/DeviceFeed.h"

#include "Client/DeviceMonitor.h"
#include "Host/TDWStreamingInvocation.h"
#include "Interfaces/TDWServer.h"
#include "Platform/Queues/Queue.h"
#include "Requests/RequestErrors.h"
#include "Support/DevicePresence.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"

#include <string>
#include <utility>

namespace tdw::cli {

namespace {

class ServiceFeed final : public DeviceFeed {
public:
    ServiceFeed(EventLoop& loop, Handlers handlers)
        : m_handlers(std::move(handlers))
        , m_monitor(DeviceMonitor::start(CallbackQueue(loop.poster()),
              { .event =
                      [this](const DeviceEvent& event) {
                          m_hasWorked = true;
                          m_handlers.event(event);
                      },
                  .outage =
                      [this](const std::optional<Error>& reason) {
                          outage(reason);
                      } }))
    {
    }

private:
    void outage(const std::optional<Error>& reason)
    {
        // The commands report a missing multiplexer themselves.
        if (reason && isDeviceNotFound(*reason))
            return;
        const auto error
            = reason ? std::optional(requestError(kTidewellServerEvents, *reason)) : std::nullopt;
        // Where there never was a service, waiting for the next one is no use.
        if (error && !m_hasWorked)
            return m_handlers.end(*error);
        m_hasWorked = true;
        m_handlers.outage(error);
    }

    const Handlers m_handlers;
    bool m_hasWorked = false;
    DeviceMonitor m_monitor;
};

/// The events of a server that this process starts. Its end is the feed's.
class DirectFeed final : public DeviceFeed {
public:
    static Result<std::unique_ptr<DeviceFeed>> create(EventLoop& loop, Handlers handlers)
    {
        auto feed = std::make_unique<DirectFeed>(std::move(handlers));
        const auto post
            = [weak = std::weak_ptr(feed->m_self), toLoop = loop.poster()](auto action) {
                  toLoop([weak, action] {
                      if (const auto self = weak.lock())
                          action(**self);
                  });
              };
        // The run alone keeps its queues, so that nothing waits for the server when the tool ends;
        // the server ends when its output is read no longer.
        const auto error = TDWInvokeStreamingServer(
            std::string(kTidewellServerEvents), Bundle::mainBundle(), {},
            Queue::serial("TDWEvents"), Queue::serial("TDWEventLines"),
            [post](const std::string& line) {
                post([line](DirectFeed& self) { self.received(line); });
            },
            [post](const std::optional<Error>& reason) {
                post([reason](DirectFeed& self) { self.ended(reason); });
            });
        if (error)
            return serverNotRun(kTidewellServerEvents, *error);
        return std::unique_ptr<DeviceFeed>(std::move(feed));
    }

    explicit DirectFeed(Handlers handlers)
        : m_handlers(std::move(handlers))
    {
    }

private:
    void received(const std::string& line)
    {
        const auto event = parseDeviceEvent(line);
        if (!event)
            return;
        for (const DeviceEvent& each : m_presence.received(*event))
            m_handlers.event(each);
    }

    void ended(const std::optional<Error>& reason)
    {
        m_handlers.end(reason.value_or(
            TDWErrorCreateWithMessage("The events server ended without a reason.", 0)));
    }

    const Handlers m_handlers;
    DevicePresence m_presence;
    /// Held by nothing else: what comes later finds it gone.
    const std::shared_ptr<DirectFeed*> m_self = std::make_shared<DirectFeed*>(this);
};

} // namespace

Result<std::unique_ptr<DeviceFeed>> DeviceFeed::open(DeviceRequests& requests, Handlers handlers)
{
    if (requests.transport() == DeviceRequests::Transport::Direct)
        return DirectFeed::create(requests.loop(), std::move(handlers));
    return std::unique_ptr<DeviceFeed>(
        std::make_unique<ServiceFeed>(requests.loop(), std::move(handlers)));
}

} // namespace tdw::cli
