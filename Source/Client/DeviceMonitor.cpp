#include "Client/DeviceMonitor.h"

#include "Client/HandlerOnce.h"
#include "Client/MonitorPolicy.h"
#include "Client/ServiceMessages.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TDWServer.h"
#include "Platform/Messages/Connection.h"
#include "Platform/Queues/Queue.h"

#include <mutex>
#include <utility>

namespace tdw {

namespace {

Result<std::set<DevicePath>> devicesOf(const Value& envelope)
{
    std::optional<Error> error;
    if (!TDWResponseUnwrap(envelope, error))
        return *std::move(error);
    if (auto devices = devicesInList(envelope))
        return *std::move(devices);
    return Error(kCocoaErrorDomain, kReplyInvalidError,
        std::string_view("The list of devices makes no sense."));
}

Error serviceEnded()
{
    return Error(kCocoaErrorDomain, kConnectionInterruptedError,
        std::string_view("The service of Tidewell has ended."));
}

} // namespace

/// Belongs to the queue of the connections, on which the policy is told what happens. What the
/// application is told goes to its callback queue from there.
class __attribute__((visibility("hidden"))) DeviceMonitor::Core final
    : public TidewellClientProtocol,
      public std::enable_shared_from_this<DeviceMonitor::Core> {
public:
    Core(CallbackQueue callbackQueue, Handlers handlers, std::optional<Endpoint> endpoint)
        : m_callbackQueue(std::move(callbackQueue))
        , m_endpoint(std::move(endpoint))
        , m_handlers(std::make_shared<const Handlers>(std::move(handlers)))
    {
    }

    void start()
    {
        m_queue->async([self = shared_from_this()] {
            self->perform(self->m_policy.started(Backoff::Clock::now()));
        });
    }

    /// Any thread.
    void stop()
    {
        std::shared_ptr<const Handlers> handlers;
        {
            const std::lock_guard lock(m_lock);
            handlers.swap(m_handlers);
        }
        destroyOn(m_callbackQueue, std::move(handlers));
        m_queue->async([self = shared_from_this()] {
            self->m_isStopped = true;
            self->disconnect();
        });
    }

    /// Any thread.
    std::set<DevicePath> devices() const
    {
        const std::lock_guard lock(m_lock);
        return m_devices;
    }

    void serviceReachedResourceLimitWithUptime(const Value&) override { }

    void serviceDidReceiveDeviceEvent(const std::string& text) override
    {
        if (const auto event = parseDeviceEvent(text))
            perform(m_policy.received(*event, Backoff::Clock::now()));
    }

private:
    void perform(const MonitorPolicy::Actions& actions)
    {
        for (const auto& action : actions) {
            if (!m_isStopped)
                std::visit([this](const auto& what) { perform(what); }, action);
        }
    }

    void perform(const DeviceEvent& event)
    {
        deliver([event](Core& self, const Handlers& handlers) {
            self.count(event);
            if (handlers.event)
                handlers.event(event);
        });
    }

    void perform(const MonitorPolicy::Outage& outage)
    {
        deliver([reason = outage.reason](Core&, const Handlers& handlers) {
            if (handlers.outage)
                handlers.outage(reason);
        });
    }

    void perform(const MonitorPolicy::Subscribe&);
    void perform(const MonitorPolicy::Disconnect&) { disconnect(); }
    void perform(const MonitorPolicy::ListDevices&);
    void perform(const MonitorPolicy::Wait& wait);

    template <typename Call>
    void deliver(Call call)
    {
        m_callbackQueue.async([self = shared_from_this(), call = std::move(call)]() noexcept {
            if (const auto handlers = self->handlers())
                call(*self, *handlers);
        });
    }

    std::shared_ptr<const Handlers> handlers() const
    {
        const std::lock_guard lock(m_lock);
        return m_handlers;
    }

    void count(const DeviceEvent& event)
    {
        const std::lock_guard lock(m_lock);
        if (event.type == DeviceEvent::Type::Attached)
            m_devices.insert(event.path);
        else if (event.type == DeviceEvent::Type::Detached)
            m_devices.erase(event.path);
    }

    void disconnect()
    {
        m_wait.cancel();
        if (const auto connection = std::exchange(m_connection, nullptr))
            connection->invalidate();
    }

    /// `action` as a handler of the present connection, which counts only as long as that does.
    template <typename Action>
    auto ifCurrent(Action action)
    {
        return [weak = weak_from_this(), connection = std::weak_ptr(m_connection),
                   action = std::move(action)](auto&&... arguments) {
            const auto self = weak.lock();
            const auto current = connection.lock();
            if (self && current && self->m_connection == current)
                action(*self, std::forward<decltype(arguments)>(arguments)...);
        };
    }

    const std::shared_ptr<const Queue> m_queue = Connection::sharedQueue();
    const CallbackQueue m_callbackQueue;
    const std::optional<Endpoint> m_endpoint;

    MonitorPolicy m_policy;
    std::shared_ptr<Connection> m_connection;
    WorkItem m_wait;
    bool m_isStopped = false;

    mutable std::mutex m_lock;
    std::shared_ptr<const Handlers> m_handlers;
    std::set<DevicePath> m_devices;
};

void DeviceMonitor::Core::perform(const MonitorPolicy::Subscribe&)
{
    m_connection = m_endpoint ? Connection::toEndpoint(*m_endpoint)
                              : Connection::toService(tidewellService());
    const auto failed = [](Core& self, const Error& error) {
        self.perform(self.m_policy.failed(error, Backoff::Clock::now()));
    };
    m_connection->activate({
        .message = ifCurrent([](Core& self, const IncomingMessage& message) {
            dispatch(message, static_cast<TidewellClientProtocol&>(self));
        }),
        .interruption = ifCurrent([failed](Core& self) { failed(self, serviceEnded()); }),
        // Where no service can be had, the subscription fails with the reason.
        .invalidation = {},
    });
    ServiceProxy(m_connection, ifCurrent(failed))
        .subscribeToDeviceEvents(ifCurrent([failed](Core& self, const std::optional<Error>& error) {
            if (error)
                failed(self, *error);
            else
                self.perform(self.m_policy.subscribed(Backoff::Clock::now()));
        }));
}

void DeviceMonitor::Core::perform(const MonitorPolicy::ListDevices&)
{
    const auto listed = [](Core& self, const Result<std::set<DevicePath>>& devices) {
        self.perform(self.m_policy.listed(devices, Backoff::Clock::now()));
    };
    const TDWServerDescription& server = *TDWServerNamed(kTidewellServerList);
    ServiceProxy(
        m_connection, ifCurrent([listed](Core& self, const Error& error) { listed(self, error); }))
        .invokeServer(std::string(server.name), {},
            std::chrono::duration<double>(server.timeout).count(),
            ifCurrent([listed](Core& self, const Value& envelope) {
                listed(self, devicesOf(envelope));
            }));
}

void DeviceMonitor::Core::perform(const MonitorPolicy::Wait& wait)
{
    m_wait.cancel();
    m_wait = WorkItem([weak = weak_from_this()] {
        const auto self = weak.lock();
        if (self && !self->m_isStopped)
            self->perform(self->m_policy.waited(Backoff::Clock::now()));
    });
    m_queue->after(wait.delay, m_wait);
}

DeviceMonitor DeviceMonitor::start(
    CallbackQueue queue, Handlers handlers, const std::optional<Endpoint>& endpoint)
{
    auto core = std::make_shared<Core>(std::move(queue), std::move(handlers), endpoint);
    core->start();
    return DeviceMonitor(std::move(core));
}

DeviceMonitor::DeviceMonitor(std::shared_ptr<Core> core)
    : m_core(std::move(core))
{
}

DeviceMonitor::DeviceMonitor(DeviceMonitor&& other) noexcept = default;

DeviceMonitor& DeviceMonitor::operator=(DeviceMonitor&& other) noexcept
{
    std::swap(m_core, other.m_core);
    return *this;
}

DeviceMonitor::~DeviceMonitor()
{
    if (m_core)
        m_core->stop();
}

std::set<DevicePath> DeviceMonitor::devices() const
{
    return m_core->devices();
}

} // namespace tdw
