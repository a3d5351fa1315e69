#pragma once

#include "Host/ServerRunner.h"
#include "Platform/Bundle.h"
#include "Platform/Queue.h"
#include "Platform/Value.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tdw::service {

/// The requests that are being carried out, and those that wait their turn.
///
/// Belongs to a serial queue: all functions are called there, and all replies are.
class Requests {
public:
    /// How many servers run at once. Their work is the device's most of the time; what bounds them
    /// is the memory and the descriptors that they take.
    static constexpr std::size_t kMaximumRuns = 64;

    /// How long a server may go on after its request's time is over, so that the one that ends
    /// itself in time can say so.
    static constexpr std::chrono::seconds kGrace { 2 };

    struct Request {
        std::string server;
        std::vector<std::string> arguments;
        double timeoutSeconds = 0;

        /// Takes the envelope.
        std::function<void(const Value&)> reply;

        /// Whether anybody still wants the answer; asked before the server is started.
        std::function<bool()> isWanted;
    };

    /// @param changed called whenever a request has ended
    /// Errors: those of a runner.
    static Result<Requests> create(Queue queue, Bundle bundle, std::function<void()> changed);

    void add(Request request);
    bool isIdle() const { return m_state->running == 0 && m_state->waiting.empty(); }

private:
    /// What the completions hold, too: the last of them may come when this is gone.
    struct State {
        Queue queue;
        Bundle bundle;
        std::function<void()> changed;
        std::deque<Request> waiting;
        std::size_t running = 0;
        std::weak_ptr<ServerRunner> runner;
    };

    Requests(std::shared_ptr<State> state, std::shared_ptr<ServerRunner> runner);

    static void startWaiting(const std::shared_ptr<State>& state);
    static void start(const std::shared_ptr<State>& state, Request request);
    static void finish(const std::shared_ptr<State>& state, const Request& request,
        const Result<ServerRunOutcome>& outcome);

    std::shared_ptr<State> m_state;
    std::shared_ptr<ServerRunner> m_runner;
};

} // namespace tdw::service
