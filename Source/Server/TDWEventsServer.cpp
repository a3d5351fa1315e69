#include "Server/TDWEventsServer.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/NeverDestroyed.h"
#include "Platform/Queues/EventSource.h"
#include "Platform/System/FileHandle.h"
#include "Server/DeviceEvents.h"
#include "Server/PairRecord.h"
#include "Server/ReaderHangupWatch.h"
#include "Server/TDWServerImplementation.h"
#include "Server/UnreportedPairings.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorHelpers.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

using namespace std::chrono_literals;
using tdw::Queue;
using tdw::SignalSource;

namespace {

constexpr double kNoTimeout = -1.0;
constexpr int kHighestPriority = -20;

/// How long what is under way may take when the server is to end.
constexpr auto kEndingDelay = 250ms;

/// Pair records are looked for as soon as a device comes, and then after pauses that grow.
constexpr std::chrono::milliseconds kShortestLookPause = 1s;
constexpr std::chrono::milliseconds kLookPauseGrowth = 100ms;
constexpr std::chrono::milliseconds kLongestLookPause = 10s;

/// The process-wide state.
struct EventsServer {
    tdw::DeviceEvents subscription;
    std::atomic<bool> isTerminating = false;
    std::optional<SignalSource> intHandler;
    std::optional<SignalSource> termHandler;
    std::optional<SignalSource> abrtHandler;
    std::optional<tdw::ReaderHangupWatch> outputReader;

    /// Subscribes, and then waits for the reader's end.
    const Queue eventsQueue = Queue::serial("TDWEvents");

    /// Looks for pair records, which may have to wait for the multiplexer.
    const Queue pairingsQueue = Queue::serial("TDWPairings");

    /// Keeps the lines of the library's thread and of the looks in order, and guards what follows.
    std::mutex lock;
    tdw::UnreportedPairings pairings;
    bool isSubscribed = false;
    tdw::WorkItem nextLook;
    std::chrono::milliseconds lookPause {};
};

/// Made on first use: no other server is to pay for it.
EventsServer& eventsServer()
{
    static const auto& server = tdw::neverDestroyed(std::make_unique<EventsServer>());
    return *server;
}

/// Every line is out once it is written, so there is nothing to flush; and the library's thread may
/// be anywhere, so nothing may be torn down under it.
[[noreturn]] void endProcess(int status)
{
    _exit(status);
}

[[noreturn]] void fail(const tdw::Error& error)
{
    // Standard error first: a host that finds the envelope there may not read the other any more.
    (void)TDWSerializeErrorResponseToStandardError(error);
    endProcess(TDWSerializeErrorResponse(error));
}

void raisePriority()
{
    // Without privileges this fails, and the server is as good as any other process.
    const int code = setpriority(PRIO_PROCESS, static_cast<id_t>(getpid()), kHighestPriority);
    if (code != 0)
        tdw::reportWarning("setpriority failed with code " + std::to_string(code));
}

void write(const tdw::DeviceEvent& event)
{
    const std::string line = tdw::deviceEventText(event) + '\n';
    const auto written = tdw::writeToDescriptor(STDOUT_FILENO, std::as_bytes(std::span(line)));
    if (written)
        return;
    if (written.error().code() == EPIPE)
        endProcess(EXIT_SUCCESS);
    tdw::reportError("Cannot deliver an event: " + written.error().failureReason());
    endProcess(EXIT_FAILURE);
}

void lookForPairings();

/// The lock is held.
void planLook(EventsServer& server)
{
    if (!server.isSubscribed || server.pairings.looks().empty())
        return;
    server.nextLook.cancel();
    server.nextLook = tdw::WorkItem(&lookForPairings);
    server.pairingsQueue.after(server.lookPause, server.nextLook);
    server.lookPause
        = std::clamp(server.lookPause + kLookPauseGrowth, kShortestLookPause, kLongestLookPause);
}

void lookForPairings()
{
    EventsServer& server = eventsServer();
    std::unique_lock lock(server.lock);
    for (const auto& look : server.pairings.looks()) {
        lock.unlock();
        const auto hasRecord = tdw::hasPairRecord(look.udid.c_str());
        lock.lock();
        const auto event = hasRecord ? server.pairings.looked(look, *hasRecord) : std::nullopt;
        if (event && !server.isTerminating)
            write(*event);
    }
    planLook(server);
}

void subscribe()
{
    {
        const std::lock_guard lock(eventsServer().lock);
        eventsServer().isSubscribed = true;
    }
    const idevice_error_t code = eventsServer().subscription.subscribe(&_TDWEventsServerCallback);
    if (code != IDEVICE_E_SUCCESS)
        fail(TDWErrorCreate("idevice_events_subscribe", code));
}

/// A host that dies takes its end of the pipe along, and a server without one would live on until
/// the next event, which may never come.
void watchTheReader()
{
    auto watch = tdw::ReaderHangupWatch::watch(
        STDOUT_FILENO, eventsServer().eventsQueue, [] { endProcess(EXIT_SUCCESS); });
    if (watch)
        eventsServer().outputReader = *std::move(watch);
    else
        tdw::reportWarning(watch.error().failureReason());
}

void terminate(const char* signalName)
{
    tdw::reportLine("Received " + std::string(signalName) + ", terminating");
    EventsServer& server = eventsServer();
    // From here on the library may report devices as gone that are still there.
    server.isTerminating = true;
    // Before the unsubscribing, which waits for the library's thread.
    Queue::main().after(kEndingDelay, tdw::WorkItem([] { endProcess(EXIT_SUCCESS); }));
    server.subscription.unsubscribe();
}

/// The slot of a signal, or null.
std::optional<SignalSource>* slotOf(std::int32_t signalNumber)
{
    switch (signalNumber) {
    case SIGINT:
        return &eventsServer().intHandler;
    case SIGTERM:
        return &eventsServer().termHandler;
    case SIGABRT:
        return &eventsServer().abrtHandler;
    default:
        return nullptr;
    }
}

/// Keeps the library from ending its thread in the middle of a line, and from unwinding code of
/// ours when it does.
class ScopedCancelDisable {
public:
    ScopedCancelDisable() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_previous); }
    ScopedCancelDisable(const ScopedCancelDisable&) = delete;
    ScopedCancelDisable& operator=(const ScopedCancelDisable&) = delete;
    ~ScopedCancelDisable() { (void)pthread_setcancelstate(m_previous, nullptr); }

private:
    int m_previous = 0;
};

} // namespace

int TDWEventsServerMain()
{
    raisePriority();
    TDWServerSetTimeoutInterval(kNoTimeout);
    TDWServerInitialize();
    registerTerminationSignalHandler(SIGINT, "SIGINT");
    registerTerminationSignalHandler(SIGTERM, "SIGTERM");
    registerTerminationSignalHandler(SIGABRT, "SIGABRT");
    watchTheReader();
    eventsServer().eventsQueue.async(&subscribe);
    tdw::dispatchMain();
}

void _TDWEventsServerCallback(const idevice_event_t* event, void* /*userData*/)
{
    const ScopedCancelDisable noCancellation;
    if (eventsServer().isTerminating)
        return;
    // A line end in it would make the rest a line of its own.
    if (!event->udid || std::strchr(event->udid, '\n'))
        return tdw::reportWarning("No usable UDID for device");
    const tdw::DeviceEvent received { static_cast<tdw::DeviceEvent::Type>(event->event),
        { static_cast<int>(event->conn_type), event->udid } };
    EventsServer& server = eventsServer();
    const std::lock_guard lock(server.lock);
    if (!server.pairings.received(received))
        return;
    write(received);
    if (received.type == tdw::DeviceEvent::Type::Attached) {
        server.lookPause = {};
        planLook(server);
    }
}

const Queue& getSignalQueue()
{
    static const Queue& queue = tdw::neverDestroyed(Queue::serial("Signal"));
    return queue;
}

void registerTerminationSignalHandler(std::int32_t signalNumber, const char* signalName)
{
    std::optional<SignalSource>* slot = slotOf(signalNumber);
    if (!slot) {
        tdw::reportLine("FATAL: Missing signal handler dispatch source global for signal "
            + std::to_string(signalNumber));
        endProcess(EXIT_FAILURE);
    }
    // The source takes the signal's disposition over. Ignoring the signal before that, or letting
    // an older source of it go, would lose one that comes in between.
    auto source = SignalSource::create(signalNumber, getSignalQueue(), { .event = [signalName] {
        terminate(signalName);
    } });
    if (!source)
        fail(source.error());
    source->resume();
    *slot = *std::move(source);
}
