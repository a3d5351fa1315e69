#pragma once

#include "Platform/System/FileHandle.h"
#include "Platform/System/Trace.h"
#include "Platform/Values/Result.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace tdw::cli {

/// Collects what this process, the service and the servers tell of a request's steps, from its
/// start on: it makes itself this process's `traceAddress`.
///
/// Made before other threads run, ended by one. The socket goes with this object.
class TraceListener {
public:
    /// Runs on a thread of the listener's own, or on that which asks for the steps.
    using Handler = std::function<void(const TraceEvent&)>;

    /// @param handler may be null. Errors: those of `runtimeDirectory`, `kPosixErrorDomain`
    static Result<std::unique_ptr<TraceListener>> start(Handler handler);

    TraceListener(const TraceListener&) = delete;
    TraceListener& operator=(const TraceListener&) = delete;
    ~TraceListener();

    /// The steps so far: those that have ended by their ends, and then those that have not.
    std::vector<TraceEvent> steps();

    /// Takes what has been told by now, and nothing more.
    void stop();

private:
    TraceListener(FileHandle socket, std::filesystem::path path, Pipe end, Handler handler);
    void listen();
    bool take();

    const FileHandle m_socket;
    const std::filesystem::path m_path;
    Pipe m_end;
    const Handler m_handler;
    std::mutex m_lock;
    std::vector<TraceEvent> m_ended;
    std::vector<TraceEvent> m_underWay;
    std::thread m_thread;
};

/// A step as it is shown: "+0.031 handshake with 00008130-…: 14 ms" and a line end.
/// @param start when the tool was started
std::string traceLine(const TraceEvent& event, TraceEvent::Clock::time_point start);

} // namespace tdw::cli
