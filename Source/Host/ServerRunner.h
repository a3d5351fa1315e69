#pragma once

#include "Host/ServerRun.h"
#include "Platform/Queue.h"
#include "Platform/Result.h"

#include <functional>
#include <memory>

namespace tdw {

/// Runs servers side by side, on one thread for all of them.
///
/// Its end is the end of the servers that still run: they are killed, and their completions say so.
/// Safe for use by several threads at once.
class ServerRunner {
public:
    /// Runs on the runner's own thread, once for each server; not for long.
    using Completion = std::function<void(Result<ServerRunOutcome>)>;

    /// Errors: `kPosixErrorDomain`; the system has no descriptor left for it.
    static Result<ServerRunner> create();

    ServerRunner(ServerRunner&&) = default;
    ServerRunner& operator=(ServerRunner&&) = delete;
    ServerRunner(const ServerRunner&) = delete;
    ServerRunner& operator=(const ServerRunner&) = delete;
    ~ServerRunner();

    void start(ServerRunOptions options, Completion completion);

private:
    class Core;
    explicit ServerRunner(std::shared_ptr<Core> core);

    std::shared_ptr<Core> m_core;
    Queue m_queue;
};

} // namespace tdw
