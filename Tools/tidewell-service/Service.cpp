#include "Service.h"

#include "Interfaces/TDWServer.h"
#include "Interfaces/TidewellVersion.h"
#include "Platform/System/DescriptorLimit.h"
#include "Session.h"
#include "Support/TDWErrorHelpers.h"

#include <malloc.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace tdw::service {

namespace {

constexpr double kListTimeoutSeconds = 10;

/// The service's own requests are those of a client that no session has.
constexpr std::uint64_t kOwnRequests = 0;

/// What the service holds without clients and requests: loops, listeners, the events server.
constexpr std::size_t kOwnDescriptors = 32;

/// Where libusbmuxd looks for the multiplexer where no variable says otherwise.
constexpr const char* kUsualMultiplexer = "UNIX:/var/run/usbmuxd";

} // namespace

Result<std::shared_ptr<Service>> Service::create(Options options)
{
    const std::shared_ptr<Service> service(
        new Service(std::move(options), TDW_TRY(ServerThread::create())));
    const std::weak_ptr<Service> weak = service;
    // Half of what there is goes to servers, as far as they need it, and the rest to clients.
    const std::size_t limit = descriptorLimit();
    const std::size_t spare = limit - std::min(limit, kOwnDescriptors);
    const std::size_t runs = std::clamp<std::size_t>(
        spare / 2 / RequestQueue::kDescriptorsForRun, 1, RequestQueue::kMaximumRuns);
    const std::size_t forRuns = runs * RequestQueue::kDescriptorsForRun;
    service->m_maximumSessions = std::max<std::size_t>(spare - std::min(spare, forRuns), 1);
    service->m_requests = std::make_shared<RequestQueue>(
        service->m_queue, service->m_options.bundle, service->m_servers, runs, [weak] {
            if (const auto self = weak.lock())
                self->somethingChanged();
        });
    service->m_events = std::make_shared<EventRelay>(service->m_queue, service->m_options.bundle,
        service->m_servers, [weak](std::function<void(std::optional<std::set<DevicePath>>)> reply) {
            if (const auto self = weak.lock())
                self->listDevices(std::move(reply));
        });
    return service;
}

Service::Service(Options options, std::shared_ptr<ServerThread> servers)
    : m_options(std::move(options))
    , m_log(std::string(kTidewellErrorDomain), "Service")
    , m_servers(std::move(servers))
{
}

Result<void> Service::listen(const std::filesystem::path& path, FileHandle lock)
{
    m_lock = std::move(lock);
    m_listeners.push_back(TDW_TRY(
        Listener::create(path, m_queue, m_log, [weak = weak_from_this()](FileHandle socket) {
            if (const auto self = weak.lock())
                self->accepted(std::move(socket));
        })));
    TDW_TRY(monitorPath(path));
    somethingChanged();
    return {};
}

Result<void> Service::adopt(FileHandle socket)
{
    m_listeners.push_back(TDW_TRY(Listener::adopt(
        std::move(socket), m_queue, m_log, [weak = weak_from_this()](FileHandle client) {
            if (const auto self = weak.lock())
                self->accepted(std::move(client));
        })));
    somethingChanged();
    return {};
}

Result<void> Service::monitorPath(const std::filesystem::path& path)
{
    m_directoryWatch = FileHandle(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    constexpr std::uint32_t kEvents = IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_ONLYDIR;
    if (!m_directoryWatch.isOpen()
        || ::inotify_add_watch(m_directoryWatch.descriptor(), path.parent_path().c_str(), kEvents)
            < 0) {
        const int code = errno;
        return Error::posix(code, "Cannot watch the directory " + path.parent_path().string());
    }
    m_directorySource = TDW_TRY(ReadSource::create(m_directoryWatch.descriptor(), m_queue,
        { .event =
                [this] {
                    std::array<std::byte, 4096> ignored {};
                    if (::read(m_directoryWatch.descriptor(), ignored.data(), ignored.size()) < 0) {
                        // The directory is looked at all the same.
                    }
                    m_canBeFound = m_canBeFound && m_listeners.front().canBeFound();
                    somethingChanged();
                },
            .cancel = {} }));
    m_directorySource->resume();
    return {};
}

void Service::accepted(FileHandle socket)
{
    // Closed unread: the client sees that nothing was done, and goes to the next service.
    if (m_isTerminating || !makeRoomForSession())
        return;
    const std::uint64_t identifier = ++m_lastSession;
    auto connection = Connection::accepted(std::move(socket), m_queue);
    const auto session
        = std::make_shared<Session>(weak_from_this(), std::move(connection), identifier);
    m_sessions.emplace(identifier, session);
    session->activate();
    m_log.debug("Client " + std::to_string(identifier) + " has come.");
    somethingChanged();
}

/// Where there is no descriptor for another client, the one that has been idle for the longest time
/// loses its connection, which it makes again when it needs one.
bool Service::makeRoomForSession()
{
    if (m_sessions.size() < m_maximumSessions)
        return true;
    m_resources.becameFull();
    somethingChanged();
    const std::shared_ptr<Session>* idlest = nullptr;
    for (const auto& [identifier, session] : m_sessions) {
        if (!m_requests->isBusy(identifier) && !m_events->isSubscribed(identifier)
            && (!idlest || session->lastMessage() < (*idlest)->lastMessage()))
            idlest = &session;
    }
    if (!idlest) {
        m_log.error("A client is refused: all " + std::to_string(m_sessions.size())
            + " places are taken by clients that wait for something.");
        return false;
    }
    const std::shared_ptr<Session> session = *idlest;
    session->end();
    sessionEnded(session->identifier());
    return true;
}

void Service::sessionEnded(std::uint64_t identifier)
{
    if (m_sessions.erase(identifier) == 0)
        return;
    m_log.debug("Client " + std::to_string(identifier) + " has gone.");
    m_requests->clientLeft(identifier);
    m_events->unsubscribe(identifier);
    somethingChanged();
}

Result<Endpoint> Service::endpoint()
{
    if (!m_endpoint) {
        m_listeners.push_back(TDW_TRY(Listener::createPrivate(
            m_options.directory, m_queue, m_log, [weak = weak_from_this()](FileHandle socket) {
                if (const auto self = weak.lock())
                    self->accepted(std::move(socket));
            })));
        m_endpoint = m_listeners.back().endpoint();
    }
    return *m_endpoint;
}

Value Service::status() const
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the service never changes its environment
    const char* multiplexer = std::getenv("USBMUXD_SOCKET_ADDRESS");
    return Dictionary { { "pid", std::int64_t { ::getpid() } },
        { "uptime", std::int64_t { m_resources.uptime().count() } },
        { "memory", static_cast<std::int64_t>(residentBytes()) },
        { "multiplexer", multiplexer && *multiplexer ? multiplexer : kUsualMultiplexer },
        { "requests", static_cast<std::int64_t>(m_requests->count()) },
        { "subscribers", static_cast<std::int64_t>(m_events->subscriberCount()) },
        { "version", TidewellVersionString } };
}

void Service::listDevices(std::function<void(std::optional<std::set<DevicePath>>)> reply)
{
    m_requests->add({ .client = kOwnRequests,
        .server = std::string(kTidewellServerList),
        .arguments = {},
        .timeoutSeconds = kListTimeoutSeconds,
        .reply = [reply = std::move(reply)](const Value& envelope) {
            reply(devicesInList(envelope));
        } });
}

bool Service::isIdle() const
{
    return m_sessions.empty() && m_requests->isIdle();
}

void Service::somethingChanged()
{
    if (m_isTerminating)
        return;
    if (const auto uptime = m_resources.uptimeAtLimit()) {
        m_log.error("A resource limit is reached after " + std::to_string(*uptime) + " seconds.");
        for (const auto& [identifier, session] : m_sessions)
            session->client().serviceReachedResourceLimitWithUptime(*uptime);
    }
    m_idleTimer.cancel();
    if (!isIdle())
        return;
    // What a burst of requests took goes back to the system.
    (void)::malloc_trim(0);
    if (!m_canBeFound)
        return leave();
    if (!m_options.idleBound)
        return;
    m_idleTimer = WorkItem([weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->leave();
    });
    m_queue.after(*m_options.idleBound, m_idleTimer);
}

/// Ends the service unless a client has come in the meantime: clients that connected before
/// the name was gone are served, and the rest start a new service.
void Service::leave()
{
    m_canBeFound = false;
    for (Listener& listener : m_listeners)
        listener.stop();
    m_lock.close();
    if (isIdle())
        terminate();
}

void Service::terminate()
{
    if (std::exchange(m_isTerminating, true))
        return;
    m_listeners.clear();
    m_sessions.clear();
    m_servers->endRequests([self = shared_from_this()] {
        self->m_queue.async([self] { self->m_events->stop(self->m_options.exit); });
    });
}

} // namespace tdw::service
