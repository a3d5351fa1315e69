#pragma once

#include "Platform/Bundle.h"
#include "Platform/Error.h"
#include "Platform/Process.h"
#include "Platform/Queue.h"
#include "Platform/Result.h"

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tdw {

/// A server that writes lines for as long as it lives, and what is to become of them.
struct StreamingServerOptions {
    /// The name of a server, found in the bundle and accepted as every server is.
    std::string serverName;
    Bundle bundle;
    std::vector<std::string> arguments;

    /// One of its threads waits for the server's end.
    Queue waitQueue;

    /// Both handlers run on it, the line handler never twice at once.
    Queue callbackQueue;

    /// Called for each line of standard output that is UTF-8. May be empty.
    std::function<void(const std::string&)> lineHandler;

    /// Called exactly once, after the server has ended and its last line has been handed over; with
    /// none for exit status 0, otherwise with the error that the server wrote to standard error,
    /// or one made of the exit status. May be empty.
    std::function<void(std::optional<Error>)> completionHandler;
};

/// A streaming server while it runs, and after that.
///
/// A handle for signals, and no more: the run goes on to the server's own end, and its completion,
/// whether anybody holds this or not. Whoever wants an earlier end sends a signal. The run keeps
/// its queues and its handlers until the completion has run, and nothing after that.
///
/// Safe for use by several threads at once.
class StreamingServerRun {
public:
    explicit StreamingServerRun(Process process);

    /// Sends a signal to the server's process group; nothing happens once the server has ended.
    void sendSignal(int signalNumber);

    pid_t identifier() const { return m_identifier; }

private:
    friend class StreamingSession;
    Termination reap();

    const pid_t m_identifier;
    const int m_exitDescriptor; // readable at the server's end; gone after `reap`
    std::mutex m_mutex;
    std::optional<Process> m_process; // belongs to the mutex
};

/// The most of a streaming server's standard error that is kept: the last of it, which holds the
/// reason of the server's end.
inline constexpr std::size_t kStandardErrorTailLimit = std::size_t { 256 } * 1024;

/// Starts a server and hands its lines over as they come. Standard error is read all the while, so
/// that the server can never block on it. The server's end is the end of the run: descendants that
/// it leaves behind are killed with its process group, and a pipe that a stranger took along holds
/// nobody up.
///
/// Errors: an unknown or untrusted executable, a failed launch; then no handler is ever called.
Result<std::shared_ptr<StreamingServerRun>> startStreamingServer(StreamingServerOptions options);

} // namespace tdw
