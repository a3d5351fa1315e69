#include "Events/ServiceFeed.h"

#include "Client/ServiceMessages.h"
#include "Client/TidewellServiceClient.h"
#include "Devices/DeviceList.h"
#include "Devices/RequestErrors.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TDWServer.h"
#include "Platform/Queue.h"
#include "Platform/ServiceStart.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <utility>

namespace tdw::cli {

namespace {

Error serviceGone()
{
    return Error(
        kPosixErrorDomain, ECONNRESET, std::string_view("The service of Tidewell has ended."));
}

/// The devices of an envelope; none where it holds an error, as those that cannot be listed cannot
/// be reached either.
std::set<service::DevicePath> pathsIn(const Value& envelope)
{
    std::set<service::DevicePath> paths;
    std::optional<Error> error;
    const auto payload = TDWResponseUnwrap(envelope, error);
    const auto devices = payload ? parseDeviceList(*payload) : *error;
    if (!devices)
        return paths;
    for (const ListedDevice& device : *devices) {
        for (const std::int64_t connection : device.connections)
            paths.emplace(static_cast<int>(connection), device.udid);
    }
    return paths;
}

} // namespace

template <typename Action>
auto ServiceFeed::ifCurrent(Action action)
{
    return [current = m_generation, generation = *m_generation, action = std::move(action)](
               auto&&... arguments) {
        if (*current == generation)
            action(std::forward<decltype(arguments)>(arguments)...);
    };
}

Result<std::unique_ptr<ServiceFeed>> ServiceFeed::create()
{
    auto loop = TDW_TRY(CallbackLoop::create());
    FileHandle poll(epoll_create1(EPOLL_CLOEXEC));
    FileHandle timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    if (!poll.isOpen() || !timer.isOpen())
        return Error::posix(errno, "Cannot wait for the service");
    std::unique_ptr<ServiceFeed> feed(
        new ServiceFeed(std::move(loop), std::move(poll), std::move(timer)));
    TDW_TRY(feed->watch(feed->m_timer));
    epoll_event event { EPOLLIN, {} };
    if (epoll_ctl(feed->descriptor(), EPOLL_CTL_ADD, feed->m_loop.descriptor(), &event) != 0)
        return Error::posix(errno, "Cannot wait for callbacks");
    feed->connect();
    return feed;
}

ServiceFeed::ServiceFeed(CallbackLoop loop, FileHandle poll, FileHandle timer)
    : m_loop(std::move(loop))
    , m_poll(std::move(poll))
    , m_timer(std::move(timer))
{
}

ServiceFeed::~ServiceFeed()
{
    disconnect();
    m_loop.close();
}

Result<std::vector<DeviceEvent>> ServiceFeed::take()
{
    m_loop.run();
    if (m_service.isOpen() && isServiceGone())
        failed(serviceGone());
    if (isPauseOver())
        connect();
    if (m_end)
        return *m_end;
    return std::exchange(m_events, {});
}

void ServiceFeed::connect()
{
    // Starting a service takes its time, and signals are to be heard meanwhile. The work alone
    // keeps its queue, so that nothing waits for it where the tool ends first.
    const Queue queue = Queue::serial("TDWServiceFeed");
    const auto answer = ifCurrent([this](const std::shared_ptr<Result<FileHandle>>& socket) {
        connected(std::move(*socket));
    });
    queue.async([queue, loop = m_loop, answer] {
        const auto socket = std::make_shared<Result<FileHandle>>(
            connectToService(tidewellService(), IfNobodyListens::Start, [] { return false; }));
        loop.add([answer, socket] { answer(socket); });
    });
}

void ServiceFeed::connected(Result<FileHandle> socket)
{
    if (!socket)
        return failed(serviceNotReached(socket.error()));
    m_service = *std::move(socket);
    if (const auto watched = watch(m_service); !watched)
        return failed(watched.error());
    subscribe();
}

void ServiceFeed::subscribe()
{
    m_client = TidewellServiceClient::initWithQueue(m_loop.queue());
    m_client->subscribeToDeviceEventsWithEventHandler(
        ifCurrent([this](const std::string& line) { tell(m_presence.received(line)); }),
        ifCurrent([this](const std::optional<Error>& error) { subscribed(error); }));
}

void ServiceFeed::subscribed(const std::optional<Error>& error)
{
    if (error)
        return failed(requestError(kTidewellServerEvents, *error));
    m_outage.reset();
    m_hasStreamed = true;
    m_start = Clock::now();
    if (m_presence.hasUnconfirmed())
        m_client->deviceListWithCompletionHandler(
            ifCurrent([this](const Value& envelope) { listed(envelope); }));
}

void ServiceFeed::listed(const Value& envelope)
{
    tell(m_presence.listed(pathsIn(envelope)));
}

void ServiceFeed::failed(const Error& error)
{
    disconnect();
    if (!m_hasStreamed) {
        // There is nothing to go on with, and its reason is of use to the user.
        m_end = error;
        return;
    }
    if (!m_outage)
        m_presence.serverEnded();
    if (!m_outage && Clock::now() - m_start >= kGoodLife)
        m_pause = kShortestPause;
    m_outage = error;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(m_pause);
    itimerspec pause {};
    pause.it_value.tv_sec = seconds.count();
    pause.it_value.tv_nsec = std::chrono::nanoseconds(m_pause - seconds).count();
    (void)timerfd_settime(m_timer.descriptor(), 0, &pause, nullptr);
    m_pause = std::min(2 * m_pause, kLongestPause);
}

void ServiceFeed::tell(const service::DevicePresence::Lines& lines)
{
    for (const std::string& line : lines) {
        if (auto event = service::parseEventLine(line))
            m_events.push_back(*std::move(event));
    }
}

void ServiceFeed::disconnect()
{
    ++*m_generation;
    m_service.close();
    if (const auto client = std::exchange(m_client, nullptr))
        client->invalidateTerminatingService(false);
}

bool ServiceFeed::isServiceGone() const
{
    // Whatever the service tells all its clients, this one does not hear.
    std::array<std::byte, 512> ignored {};
    ssize_t count = 0;
    do {
        count = recv(m_service.descriptor(), ignored.data(), ignored.size(), MSG_DONTWAIT);
    } while (count > 0);
    return count == 0 || (errno != EAGAIN && errno != EINTR);
}

bool ServiceFeed::isPauseOver() const
{
    std::uint64_t expirations = 0;
    return read(m_timer.descriptor(), &expirations, sizeof expirations) == sizeof expirations;
}

Result<void> ServiceFeed::watch(const FileHandle& handle) const
{
    epoll_event event { EPOLLIN, {} };
    if (epoll_ctl(m_poll.descriptor(), EPOLL_CTL_ADD, handle.descriptor(), &event) != 0)
        return Error::posix(errno, "Cannot wait for the service");
    return {};
}

} // namespace tdw::cli
