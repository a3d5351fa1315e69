#include "Server/ServerMain.h"

#include "Interfaces/StandardOutput.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/Trace.h"
#include "Server/TDWServerImplementation.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
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

/// The process may end for an exception that has not been caught, which cannot be looked at.
Error currentException()
{
    const std::exception_ptr current = std::current_exception();
    if (!current)
        return TDWErrorCreateWithMessage("The server cannot go on.", 1);
    try {
        std::rethrow_exception(current);
    } catch (const std::system_error& exception) {
        return Error::posix(exception.code().value(), "The server cannot go on");
    } catch (const std::bad_alloc&) {
        return Error::posix(ENOMEM, "The server cannot go on");
    } catch (const std::exception& exception) {
        return TDWErrorCreateWithMessage(
            std::string("The server cannot go on: ") + exception.what(), 1);
    }
}

[[noreturn]] void endOverException() noexcept
{
    try {
        const Error error = currentException();
        const StandardOutputGuard output(kWriterBound);
        if (output.isHeld() && !output.hasAnswer())
            (void)TDWSerializeErrorResponse(error);
    } catch (...) {
        constexpr std::string_view kMessage = "[ERROR] The server cannot even say why it ends.\n";
        if (::write(STDERR_FILENO, kMessage.data(), kMessage.size()) < 0) { /* Nor even that. */
        }
    }
    _exit(EXIT_FAILURE);
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

void answerUncaughtExceptions()
{
    (void)std::set_terminate(&endOverException);
}

} // namespace tdw
