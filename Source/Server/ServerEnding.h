#pragma once

#include "Platform/Queue.h"
#include "Server/TDWServerImplementation.h"

namespace tdw {

/// Answers with the error of a library call that failed.
/// @param api the function's own name
/// @return `code`
int failCall(const char* api, int code);

/// Bounds the good-byes of a server whose answer is out: the device library can wait for half a
/// minute on a device that has fallen silent, and a host waits for the end of the process. Ends the
/// process with `status` unless it is destroyed within a second.
class BoundedGoodbye {
public:
    explicit BoundedGoodbye(int status);
    BoundedGoodbye(const BoundedGoodbye&) = delete;
    BoundedGoodbye& operator=(const BoundedGoodbye&) = delete;
    ~BoundedGoodbye();

private:
    WorkItem m_exit;
};

/// The end of every server that opened a device: the clock stops, and the handles are freed in the
/// order given, within a bound.
/// @return `status`
template <typename... Handles>
int endServer(int status, Handles&... handles)
{
    TDWServerStopTimeoutClock();
    const BoundedGoodbye goodbye(status);
    (handles.reset(), ...);
    return status;
}

} // namespace tdw
