#include "Requests.h"

#include "Host/ServerEnvelope.h"
#include "Host/TDWServerInvocation.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TDWServer.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace tdw::service {

namespace {

constexpr double kLongestTimeoutSeconds = 3600;

/// The servers that answer with one envelope. The events server is no request.
bool isRequestServer(const std::string& name)
{
    const TDWServer servers[] = { kTidewellServerList, kTidewellServerInfo, kTidewellServerConfig,
        kTidewellServerBattery, kTidewellServerCompanion, kTidewellServerCompanionBattery,
        kTidewellServerWallpaper, kTidewellServerPairing, kTidewellServerTest };
    return std::ranges::find(servers, name) != std::end(servers);
}

/// Why a request cannot be carried out at all.
std::optional<Error> refusal(const Requests::Request& request)
{
    if (!isRequestServer(request.server))
        return TDWErrorCreateWithMessage(
            "There is no server " + Value(request.server).debugDescription() + ".", 1);
    if (!std::isfinite(request.timeoutSeconds) || request.timeoutSeconds < 0)
        return TDWErrorCreateWithMessage("A request cannot take "
                + Value(request.timeoutSeconds).debugDescription() + " seconds.",
            1);
    return std::nullopt;
}

std::chrono::milliseconds bound(double timeoutSeconds)
{
    const std::chrono::duration<double> timeout(std::min(timeoutSeconds, kLongestTimeoutSeconds));
    return std::chrono::ceil<std::chrono::milliseconds>(timeout) + Requests::kGrace;
}

Value envelopeOf(const std::string& server, const Result<ServerRunOutcome>& outcome)
{
    if (!outcome)
        return TDWClientErrorResponse(outcome.error());
    // As the server itself says when its own clock ends it.
    if (outcome->timedOut)
        return TDWClientErrorResponse(TDWErrorCreateWithMessage("Server timeout.", 1));
    return envelopeOfRun(server, outcome->output, outcome->termination.status,
        [&] { return outcome->standardError; });
}

} // namespace

Result<Requests> Requests::create(Queue queue, Bundle bundle, std::function<void()> changed)
{
    auto runner = std::make_shared<ServerRunner>(TDW_TRY(ServerRunner::create()));
    auto state = std::make_shared<State>(State { .queue = std::move(queue),
        .bundle = std::move(bundle),
        .changed = std::move(changed),
        .waiting = {},
        .running = 0,
        .runner = runner });
    return Requests(std::move(state), std::move(runner));
}

Requests::Requests(std::shared_ptr<State> state, std::shared_ptr<ServerRunner> runner)
    : m_state(std::move(state))
    , m_runner(std::move(runner))
{
}

void Requests::add(Request request)
{
    if (const auto error = refusal(request))
        return request.reply(TDWClientErrorResponse(*error));
    m_state->waiting.push_back(std::move(request));
    startWaiting(m_state);
}

void Requests::startWaiting(const std::shared_ptr<State>& state)
{
    while (state->running < kMaximumRuns && !state->waiting.empty()) {
        Request request = std::move(state->waiting.front());
        state->waiting.pop_front();
        if (request.isWanted())
            start(state, std::move(request));
    }
}

void Requests::start(const std::shared_ptr<State>& state, Request request)
{
    const auto runner = state->runner.lock();
    std::optional<Error> error;
    auto executable = TDWValidateServerExecutable(request.server, state->bundle, error);
    if (!executable)
        return request.reply(TDWClientErrorResponse(*error));
    if (!runner)
        return;

    ServerRunOptions options;
    options.executable = *std::move(executable);
    options.serverName = request.server;
    options.arguments = request.arguments;
    options.timeout = bound(request.timeoutSeconds);
    ++state->running;
    runner->start(std::move(options),
        [state, request = std::move(request)](Result<ServerRunOutcome> outcome) {
            auto shared = std::make_shared<Result<ServerRunOutcome>>(std::move(outcome));
            state->queue.async([state, request, shared] { finish(state, request, *shared); });
        });
}

void Requests::finish(const std::shared_ptr<State>& state, const Request& request,
    const Result<ServerRunOutcome>& outcome)
{
    --state->running;
    request.reply(envelopeOf(request.server, outcome));
    startWaiting(state);
    state->changed();
}

} // namespace tdw::service
