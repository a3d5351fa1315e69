#include "Service.h"

#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TDWServer.h"
#include "Session.h"
#include "Support/TDWErrorHelpers.h"

#include <malloc.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace tdw::service {

namespace {

constexpr double kListTimeoutSeconds = 10;

std::optional<std::set<DevicePath>> devicesIn(const Value& envelope)
{
    std::optional<Error> error;
    const auto payload = TDWResponseUnwrap(envelope, error);
    const Dictionary* dictionary = payload ? payload->asDictionary() : nullptr;
    const Value* list = dictionary ? dictionary->find(kTDWDevicesKey) : nullptr;
    if (!list || !list->asArray())
        return std::nullopt;
    std::set<DevicePath> devices;
    for (const Value& item : *list->asArray()) {
        const Dictionary* device = item.asDictionary();
        const Value* udid = device ? device->find(kTDWDeviceListItemUDID) : nullptr;
        const Value* connection = device ? device->find(kTDWDeviceListItemConnection) : nullptr;
        if (udid && udid->asString() && connection && connection->asInt64())
            devices.emplace(static_cast<int>(*connection->asInt64()), *udid->asString());
    }
    return devices;
}

} // namespace

Result<std::shared_ptr<Service>> Service::create(Options options)
{
    const std::shared_ptr<Service> service(new Service(std::move(options)));
    const std::weak_ptr<Service> weak = service;
    service->m_requests
        = TDW_TRY(Requests::create(service->m_queue, service->m_options.bundle, [weak] {
              if (const auto self = weak.lock())
                  self->somethingChanged();
          }));
    service->m_events = std::make_shared<EventRelay>(service->m_queue, service->m_options.bundle,
        [weak](std::function<void(std::optional<std::set<DevicePath>>)> reply) {
            if (const auto self = weak.lock())
                self->listDevices(std::move(reply));
        });
    return service;
}

Service::Service(Options options)
    : m_options(std::move(options))
    , m_log(std::string(kTidewellErrorDomain), "Service")
{
}

Result<void> Service::listen(const std::filesystem::path& path, FileHandle lock)
{
    m_lock = std::move(lock);
    m_listeners.push_back(
        TDW_TRY(Listener::create(path, m_queue, [weak = weak_from_this()](FileHandle socket) {
            if (const auto self = weak.lock())
                self->accepted(std::move(socket));
        })));
    TDW_TRY(watchPath(path));
    somethingChanged();
    return {};
}

Result<void> Service::adopt(FileHandle socket)
{
    m_listeners.push_back(TDW_TRY(
        Listener::adopt(std::move(socket), m_queue, [weak = weak_from_this()](FileHandle client) {
            if (const auto self = weak.lock())
                self->accepted(std::move(client));
        })));
    somethingChanged();
    return {};
}

Result<void> Service::watchPath(const std::filesystem::path& path)
{
    m_directoryWatch = FileHandle(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    constexpr std::uint32_t kEvents = IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_ONLYDIR;
    if (::inotify_add_watch(m_directoryWatch.descriptor(), path.parent_path().c_str(), kEvents) < 0)
        return Error::posix(errno, "Cannot watch the directory " + path.parent_path().string());
    m_directorySource = TDW_TRY(ReadSource::create(m_directoryWatch.descriptor(), m_queue,
        { .event =
                [this] {
                    std::array<std::byte, 4096> ignored {};
                    (void)::read(m_directoryWatch.descriptor(), ignored.data(), ignored.size());
                    m_canBeFound = m_canBeFound && m_listeners.front().canBeFound();
                    somethingChanged();
                },
            .cancel = {} }));
    m_directorySource->resume();
    return {};
}

void Service::accepted(FileHandle socket)
{
    const std::uint64_t identifier = ++m_lastSession;
    auto connection = Connection::accepted(std::move(socket), m_queue);
    const auto session
        = std::make_shared<Session>(weak_from_this(), std::move(connection), identifier);
    m_sessions.emplace(identifier, session);
    session->activate();
    somethingChanged();
}

void Service::sessionEnded(std::uint64_t identifier)
{
    m_events->unsubscribe(identifier);
    m_sessions.erase(identifier);
    somethingChanged();
}

Result<Endpoint> Service::endpoint()
{
    if (!m_endpoint) {
        m_listeners.push_back(TDW_TRY(Listener::createPrivate(
            m_options.directory, m_queue, [weak = weak_from_this()](FileHandle socket) {
                if (const auto self = weak.lock())
                    self->accepted(std::move(socket));
            })));
        m_endpoint = m_listeners.back().endpoint();
    }
    return *m_endpoint;
}

void Service::listDevices(std::function<void(std::optional<std::set<DevicePath>>)> reply)
{
    m_requests->add({ .server = std::string(kTidewellServerList),
        .arguments = {},
        .timeoutSeconds = kListTimeoutSeconds,
        .reply = [reply = std::move(reply)](const Value& envelope) { reply(devicesIn(envelope)); },
        .isWanted =
            [] {
                return true;
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

/// Ends the service unless somebody has come in the very last moment: those that connected before
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
    m_requests.reset();
    m_events->stop(m_options.exit);
}

} // namespace tdw::service
