#include "Server/ServerMain.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/System/Trace.h"
#include "Server/ServerProcess.h"
#include "Server/TDWServerImplementation.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"

#include <unistd.h>

#include <chrono>
#include <utility>

using namespace std::chrono_literals;

namespace tdw {

namespace {

constexpr auto kCleanupBound = 1s;

/// Ends the process with its status unless it is destroyed in time.
class BoundedCleanup {
public:
    explicit BoundedCleanup(int status)
        : m_exit([status] { _exit(status); })
    {
        serverClockQueue().after(kCleanupBound, m_exit);
    }
    BoundedCleanup(const BoundedCleanup&) = delete;
    BoundedCleanup& operator=(const BoundedCleanup&) = delete;
    ~BoundedCleanup() { m_exit.cancel(); }

private:
    WorkItem m_exit;
};

int write(const ServerReply& reply)
{
    if (const Error* error = std::get_if<Error>(&reply.content)) {
        const int status = TDWSerializeErrorResponse(*error);
        const bool isOfLibraryCall = !failedApi(*error).empty();
        return reply.status.value_or(isOfLibraryCall ? static_cast<int>(error->code()) : status);
    }
    const int status = _TDWSerializeResponse(std::get<Value>(reply.content), reply.deviceID);
    return reply.status.value_or(status);
}

} // namespace

int answerRequest(const ServerJob& job)
{
    std::optional<DeviceSession> session(std::in_place);
    const char* const name = TDWServerName();
    std::optional<TraceStep> step(std::in_place, "work of", name ? name : "");
    const auto reply = job(*session);
    const int status = write(reply ? *reply : ServerReply { reply.error() });
    TDWServerStopTimeoutClock();
    step.reset();
    const BoundedCleanup bound(status);
    session.reset();
    return status;
}

Result<const char*> requiredUdid(int argumentCount, char** arguments)
{
    if (argumentCount <= 1)
        return TDWErrorCreateWithMessage("Device UDID must be provided.", 1);
    return static_cast<const char*>(arguments[1]);
}

} // namespace tdw
