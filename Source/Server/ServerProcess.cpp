#include "Server/ServerProcess.h"

#include "Interfaces/StandardOutput.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/NeverDestroyed.h"
#include "Support/TDWErrorHelpers.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

namespace tdw {

namespace {

/// A device that drops its connection while the library writes must become an error in the
/// envelope, not the end of the process.
void ignoreBrokenPipes()
{
    (void)std::signal(SIGPIPE, SIG_IGN);
}

/// A server holds the host's private key for the device, which belongs on no disk. The limit keeps
/// the system from writing a core, the attribute keeps it from handing one to a program.
void writeNoCore()
{
    const rlimit none {};
    (void)setrlimit(RLIMIT_CORE, &none);
    (void)prctl(PR_SET_DUMPABLE, 0);
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
        if (::write(STDERR_FILENO, kMessage.data(), kMessage.size())
            < 0) { /* Standard error is gone. */
        }
    }
    _exit(EXIT_FAILURE);
}

} // namespace

void prepareServerProcess()
{
    ignoreBrokenPipes();
    writeNoCore();
    (void)std::set_terminate(&endOverException);
}

const Queue& serverClockQueue()
{
    // Its thread is not waited for at exit: the answer is out, and the host waits for the end.
    static const Queue& queue
        = neverDestroyed(Queue::concurrent("TDWServerTimeout", QualityOfService::UserInitiated));
    return queue;
}

} // namespace tdw
