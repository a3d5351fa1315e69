#pragma once

#include "Platform/Queues/EventLoop.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/Bundle.h"
#include "Platform/System/Process.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"

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
struct EventStreamOptions {
    /// The name of a server, found in the bundle and accepted as every server is.
    std::string serverName;
    Bundle bundle;
    std::vector<std::string> arguments;

    /// Lines are read on it, and both handlers run on it, the line handler never twice at once.
    Queue callbackQueue;

    /// Called for each line of standard output that is UTF-8. May be empty.
    std::function<void(const std::string&)> lineHandler;

    /// Called exactly once, after the server has ended and its last line has been handed over; with
    /// none for exit status 0, otherwise with the error that the server wrote, or one made of the
    /// exit status. May be empty.
    std::function<void(std::optional<Error>)> completionHandler;

    /// Where the server may write the envelope of its failure: only to standard error, or also
    /// among the lines of standard output that are no events.
    enum class Envelope { OnStandardError, OnEitherStream };
    Envelope envelope = Envelope::OnStandardError;
};

/// A streaming server while it runs, and after that: a handle for signals.
///
/// The run goes on to the server's own end, and its completion, whether this is held or not. An
/// earlier end takes a signal. The run keeps its queue and its handlers until the completion has
/// run, and nothing after that. Safe for use by several threads at once.
class EventStreamRun {
public:
    /// The most of a server's standard error that is kept: the end of it, with the reason of the
    /// server's own end.
    static constexpr std::size_t kStandardErrorTailLimit = std::size_t { 256 } * 1024;

    /// Starts a server and hands its lines over as they come. Standard error is read all the while,
    /// so that the server can never block on it. The server's end is the end of the run:
    /// descendants that it leaves behind are killed with its process group, and a pipe that another
    /// process took along holds nothing up. To be called on the loop's thread.
    ///
    /// @param loop lives and runs until the completion
    /// Errors: an unknown or untrusted executable, a failed launch; then no handler is ever called.
    static Result<std::shared_ptr<EventStreamRun>> start(
        EventLoop& loop, EventStreamOptions options);

    /// Sends a signal to the server's process group; nothing happens once the server has ended.
    void sendSignal(int signalNumber);

    pid_t identifier() const { return m_identifier; }

    /// Whether the server has ended: nothing is left to be done on the loop.
    bool hasEnded() const;

private:
    class Session;
    explicit EventStreamRun(Process process);
    Termination reap();

    const pid_t m_identifier;
    mutable std::mutex m_mutex;
    std::optional<Process> m_process; // belongs to the mutex
};

} // namespace tdw
