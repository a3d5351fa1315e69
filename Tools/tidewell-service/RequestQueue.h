#pragma once

#include "Platform/Queues/Queue.h"
#include "Platform/System/Bundle.h"
#include "Platform/System/Log.h"
#include "Platform/System/Trace.h"
#include "Platform/Values/Value.h"
#include "RequestSchedule.h"
#include "ServerThread.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tdw::service {

/// The requests that are being carried out, and those that wait their turn.
///
/// Belongs to a serial queue: all functions are called there, and all replies are.
class RequestQueue : public std::enable_shared_from_this<RequestQueue> {
public:
    /// How many servers run at once at most. Their work is the device's most of the time; what
    /// bounds them is the memory and the descriptors that they take.
    static constexpr std::size_t kMaximumRuns = 64;

    /// What a server takes while it is started: both ends of two pipes, and its own descriptor.
    static constexpr std::size_t kDescriptorsForRun = 5;

    /// How long a server may go on after its request's time is over, so that the one that ends
    /// itself in time can say so.
    static constexpr std::chrono::seconds kGrace { 2 };

    /// How many bytes of arguments a request may have, which is what the system passes to a
    /// process in one piece; and all requests that wait together.
    static constexpr std::size_t kLongestArguments = std::size_t { 128 } * 1024;
    static constexpr std::size_t kLongestWaiting = std::size_t { 32 } << 20;

    struct Request {
        RequestSchedule::Client client = 0;
        std::string server;
        std::vector<std::string> arguments;

        /// Counts from now on, whether the request waits or runs.
        double timeoutSeconds = 0;

        /// Where the client wants to be told the steps; empty: nowhere.
        std::string trace {};

        /// Takes the envelope.
        std::function<void(const Value&)> reply;
    };

    /// @param runs how many servers run at once
    /// @param changed called whenever a request has ended
    RequestQueue(Queue queue, Bundle bundle, std::shared_ptr<ServerThread> servers,
        std::size_t runs, std::function<void()> changed);

    void add(Request request);

    /// What a client that has gone waits for is given up.
    void clientLeft(RequestSchedule::Client client);

    bool isBusy(RequestSchedule::Client client) const { return m_schedule.isBusy(client); }
    bool isIdle() const { return m_pending.empty(); }

    /// Those that run and those that wait.
    std::size_t count() const { return m_pending.size(); }

private:
    using Clock = RequestSchedule::Clock;
    using Ticket = RequestSchedule::Ticket;

    struct Pending {
        Request request;
        Clock::time_point start;
        Clock::time_point deadline;
        std::size_t argumentBytes = 0;
        /// From the request's arrival to its answer, and the part that its server runs.
        std::shared_ptr<TraceStep> step {};
        std::shared_ptr<TraceStep> run {};
    };

    void startWaiting();
    void start(Ticket ticket);
    void ended(Ticket ticket, Result<ServerRunOutcome> outcome);
    void answer(Ticket ticket, const Value& envelope);
    void drop(const std::vector<Ticket>& tickets);
    void answerLate();
    void setTimer();

    const Queue m_queue;
    const Bundle m_bundle;
    const std::shared_ptr<ServerThread> m_servers;
    const std::function<void()> m_changed;
    const Log m_log;
    RequestSchedule m_schedule;
    std::map<Ticket, Pending> m_pending;
    std::size_t m_argumentBytes = 0;
    Ticket m_lastTicket = 0;
    /// The system had no descriptor or process for another server; none is started for a moment.
    bool m_isExhausted = false;
    WorkItem m_timer;
};

} // namespace tdw::service
