#include "RequestQueue.h"

#include "Host/ServerEnvelope.h"
#include "Host/TDWServerInvocation.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TDWServer.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <optional>
#include <utility>

namespace tdw::service {

namespace {

using namespace std::chrono_literals;

constexpr double kLongestTimeoutSeconds = 3600;

/// After the system had nothing left for a server, before the next try.
constexpr auto kExhaustionPause = 100ms;

/// The servers that answer with one envelope. The events server is no request.
bool isRequestServer(const std::string& name)
{
    const TDWServerDescription* server = TDWServerNamed(name);
    return server && server->kind != TDWServerKind::Stream;
}

std::size_t bytesOf(const std::vector<std::string>& arguments)
{
    std::size_t bytes = 0;
    for (const std::string& argument : arguments)
        bytes += argument.size() + 1;
    return bytes;
}

/// Why a request cannot be carried out at all.
std::optional<Error> refusal(const RequestQueue::Request& request)
{
    if (!isRequestServer(request.server))
        return TDWErrorCreateWithMessage(
            "There is no server " + Value(request.server).debugDescription() + ".", 1);
    if (!std::isfinite(request.timeoutSeconds) || request.timeoutSeconds < 0)
        return TDWErrorCreateWithMessage("A request cannot take "
                + Value(request.timeoutSeconds).debugDescription() + " seconds.",
            1);
    if (const std::size_t bytes = bytesOf(request.arguments);
        bytes > RequestQueue::kLongestArguments)
        return TDWErrorCreateWithMessage("A request cannot have " + std::to_string(bytes)
                + " bytes of arguments; at most " + std::to_string(RequestQueue::kLongestArguments)
                + " are taken.",
            1);
    return std::nullopt;
}

std::chrono::milliseconds bound(double timeoutSeconds)
{
    const std::chrono::duration<double> timeout(std::min(timeoutSeconds, kLongestTimeoutSeconds));
    return std::chrono::ceil<std::chrono::milliseconds>(timeout) + RequestQueue::kGrace;
}

bool meansExhaustion(const Error& error)
{
    return error.domain() == kPosixErrorDomain
        && (error.code() == EMFILE || error.code() == ENFILE || error.code() == EAGAIN
            || error.code() == ENOMEM);
}

Value envelopeOf(const std::string& server, const Result<ServerRunOutcome>& outcome)
{
    if (!outcome)
        return TDWClientErrorResponse(outcome.error());
    // As the server itself says when its own clock ends it.
    if (outcome->timedOut)
        return TDWClientErrorResponse(serverTimeoutError());
    return envelopeOfRun(
        server, outcome->output, outcome->termination, [&] { return outcome->standardError; });
}

std::string millisecondsText(std::chrono::steady_clock::duration duration)
{
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count())
        + " ms";
}

} // namespace

RequestQueue::RequestQueue(Queue queue, Bundle bundle, std::shared_ptr<ServerThread> servers,
    std::size_t runs, std::function<void()> changed)
    : m_queue(std::move(queue))
    , m_bundle(std::move(bundle))
    , m_servers(std::move(servers))
    , m_changed(std::move(changed))
    , m_log(std::string(kTidewellErrorDomain), "RequestQueue")
    , m_schedule(runs)
{
}

void RequestQueue::add(Request request)
{
    if (const auto error = refusal(request))
        return request.reply(TDWClientErrorResponse(*error));
    const std::size_t bytes = bytesOf(request.arguments);
    if (m_argumentBytes + bytes > kLongestWaiting)
        return request.reply(TDWClientErrorResponse(TDWErrorCreateWithMessage(
            "Too many requests wait in the service; ask again when some are done.", 1)));
    const auto now = Clock::now();
    const auto deadline = now + bound(request.timeoutSeconds);
    const Ticket ticket = ++m_lastTicket;
    m_schedule.add(request.client, ticket, deadline);
    const auto step
        = std::make_shared<TraceStep>("the service carries out", request.server, request.trace);
    m_pending.emplace(ticket, Pending { std::move(request), now, deadline, bytes, step });
    m_argumentBytes += bytes;
    startWaiting();
}

void RequestQueue::clientLeft(RequestSchedule::Client client)
{
    drop(m_schedule.removeClient(client));
}

void RequestQueue::drop(const std::vector<Ticket>& tickets)
{
    for (const Ticket ticket : tickets) {
        m_argumentBytes -= m_pending.at(ticket).argumentBytes;
        m_pending.erase(ticket);
    }
}

void RequestQueue::startWaiting()
{
    while (!m_isExhausted) {
        const auto ticket = m_schedule.next();
        if (!ticket)
            break;
        start(*ticket);
    }
    setTimer();
}

void RequestQueue::start(Ticket ticket)
{
    Pending& pending = m_pending.at(ticket);
    const Request& request = pending.request;
    std::optional<Error> error;
    auto executable = TDWValidateServerExecutable(request.server, m_bundle, error);
    if (!executable) {
        m_schedule.ended(request.client);
        return answer(ticket, TDWClientErrorResponse(*error));
    }
    ServerRunOptions options;
    options.executable = *std::move(executable);
    options.serverName = request.server;
    options.arguments = request.arguments;
    options.trace = request.trace;
    pending.run = std::make_shared<TraceStep>("process", request.server, request.trace);
    options.timeout = std::chrono::ceil<std::chrono::milliseconds>(
        std::max<Clock::duration>(pending.deadline - Clock::now(), {}));
    m_servers->start(
        std::move(options), [self = shared_from_this(), ticket](Result<ServerRunOutcome> outcome) {
            const auto shared = std::make_shared<Result<ServerRunOutcome>>(std::move(outcome));
            self->m_queue.async([self, ticket, shared] {
                self->ended(ticket, std::move(*shared));
                self->startWaiting();
                self->m_changed();
            });
        });
}

void RequestQueue::ended(Ticket ticket, Result<ServerRunOutcome> outcome)
{
    Pending& pending = m_pending.at(ticket);
    pending.run.reset();
    const RequestSchedule::Client client = pending.request.client;
    // What another server holds now is free in a moment, and the request has its time to wait.
    m_isExhausted = !outcome && meansExhaustion(outcome.error());
    if (m_isExhausted && Clock::now() + kExhaustionPause < pending.deadline)
        return m_schedule.putBack(client, ticket, pending.deadline);
    m_isExhausted = false;
    m_schedule.ended(client);
    answer(ticket, envelopeOf(pending.request.server, outcome));
}

void RequestQueue::answer(Ticket ticket, const Value& envelope)
{
    const Pending pending = std::move(m_pending.at(ticket));
    drop({ ticket });
    m_log.debug(pending.request.server + " for client " + std::to_string(pending.request.client)
        + ": answered after " + millisecondsText(Clock::now() - pending.start));
    pending.request.reply(envelope);
}

void RequestQueue::answerLate()
{
    for (const Ticket ticket : m_schedule.removeLate(Clock::now()))
        answer(ticket, TDWClientErrorResponse(serverTimeoutError()));
}

void RequestQueue::setTimer()
{
    m_timer.cancel();
    const auto now = Clock::now();
    auto next = m_schedule.earliestDeadline();
    if (!next)
        return;
    if (m_isExhausted)
        next = std::min(*next, now + kExhaustionPause);
    m_timer = WorkItem([weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self)
            return;
        self->m_isExhausted = false;
        self->answerLate();
        self->startWaiting();
        self->m_changed();
    });
    m_queue.after(*next - now, m_timer);
}

} // namespace tdw::service
