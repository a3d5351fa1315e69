#pragma once

#include "EventRelay.h"
#include "Platform/Messages/Listener.h"
#include "Platform/Queues/EventSource.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/Bundle.h"
#include "Platform/System/Log.h"
#include "Platform/Values/Result.h"
#include "RequestQueue.h"
#include "ResourceMonitor.h"
#include "ServerThread.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace tdw::service {

class Session;

/// The service: its listeners, the clients that are connected, and what is done for them.
///
/// Belongs to the main queue: it is made there, and every function is called there.
class Service : public std::enable_shared_from_this<Service> {
public:
    struct Options {
        /// Where the servers' executables are.
        Bundle bundle;

        /// Where a private listener may be put.
        std::filesystem::path directory;

        /// How long the service stays without a client; none: for ever.
        std::optional<std::chrono::milliseconds> idleBound;

        /// Ends the process. Called once, when nothing is left to be done.
        std::function<void()> exit;
    };

    /// Errors: `kPosixErrorDomain`; the system has no descriptor left for it.
    static Result<std::shared_ptr<Service>> create(Options options);

    /// Listens at a path, and ends when the path is gone: no client could find it.
    /// @param lock says that no other service may listen there; closed when this one does not
    Result<void> listen(const std::filesystem::path& path, FileHandle lock);

    /// Listens on a socket that the starter of the service has set up.
    Result<void> adopt(FileHandle socket);

    /// Ends the servers, the listeners and then the process.
    void terminate();

private:
    friend class Session;
    Service(Options options, std::shared_ptr<ServerThread> servers);

    void accepted(FileHandle socket);
    bool makeRoomForSession();
    void sessionEnded(std::uint64_t identifier);
    Result<Endpoint> endpoint();
    Value status() const;
    Result<void> monitorPath(const std::filesystem::path& path);
    void listDevices(std::function<void(std::optional<std::set<DevicePath>>)> reply);

    bool isIdle() const;
    void somethingChanged();
    void leave();

    const Options m_options;
    const Queue m_queue = Queue::main();
    const Log m_log;
    const std::shared_ptr<ServerThread> m_servers;
    std::shared_ptr<RequestQueue> m_requests;
    std::shared_ptr<EventRelay> m_events;
    ResourceMonitor m_resources;
    std::size_t m_maximumSessions = 0;

    FileHandle m_lock;
    std::vector<Listener> m_listeners;
    std::optional<Endpoint> m_endpoint;
    FileHandle m_directoryWatch;
    std::optional<ReadSource> m_directorySource;
    bool m_canBeFound = true;

    std::map<std::uint64_t, std::shared_ptr<Session>> m_sessions;
    std::uint64_t m_lastSession = 0;
    WorkItem m_idleTimer;
    bool m_isTerminating = false;
};

} // namespace tdw::service
