#include "Platform/Messages/ServiceStart.h"

#include "Platform/System/LocalSocket.h"
#include "Platform/System/Process.h"
#include "Platform/System/RuntimeDirectory.h"
#include "Platform/System/Trace.h"
#include "Platform/System/Trust.h"
#include "Platform/Values/Utf8.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <utility>

namespace tdw {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Between two looks whether the service has come up by now, or is not wanted any more.
constexpr auto kRetryInterval = 5ms;

bool meansNobodyListens(const Error& error)
{
    return error.domain() == kPosixErrorDomain
        && (error.code() == ENOENT || error.code() == ECONNREFUSED);
}

/// A socket with so many connections waiting that one more has to wait, too.
bool meansTryAgain(const Error& error)
{
    return error.domain() == kPosixErrorDomain && error.code() == EAGAIN;
}

/// The right to start services: a lock on the directory of their sockets, which ends with the
/// process that holds it, however that ends.
Result<FileHandle> lockForStarting(const std::filesystem::path& directory)
{
    FileHandle lock(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock.isOpen() || ::flock(lock.descriptor(), LOCK_EX | LOCK_NB) != 0) {
        const int code = errno;
        return Error::posix(code, "Cannot lock the directory " + directory.string());
    }
    return lock;
}

/// What a process that has ended wrote last, as far as a pipe holds it.
std::string textIn(const FileHandle& reader)
{
    std::array<char, 4096> text {};
    pollfd entry { reader.descriptor(), POLLIN, 0 };
    if (::poll(&entry, 1, 0) <= 0)
        return {};
    const ssize_t count = ::read(reader.descriptor(), text.data(), text.size());
    std::string result(text.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    while (!result.empty() && result.back() == '\n')
        result.pop_back();
    return result;
}

/// Errors: ECANCELED, ETIMEDOUT.
Result<Termination> waitForEnd(
    Process& launcher, Clock::time_point deadline, const IsCancelled& isCancelled)
{
    while (Clock::now() < deadline) {
        if (isCancelled())
            return Error::posix(ECANCELED, "The service is not wanted any more");
        if (const auto termination = launcher.waitUntilExit(kRetryInterval))
            return *termination;
    }
    return Error::posix(ETIMEDOUT, "The service does not come up");
}

/// Starts the service and connects to it.
Result<FileHandle> startService(
    const ServiceIdentity& service, Clock::time_point deadline, const IsCancelled& isCancelled)
{
    const TraceStep step("start of", service.executable);
    const auto path = service.bundle.pathForAuxiliaryExecutable(service.executable);
    if (!path)
        return Error::posix(ENOENT, "Cannot find the executable \"" + service.executable + "\"");

    Pipe standardError = TDW_TRY(Pipe::create());
    const FileHandle null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    LaunchOptions launch;
    launch.executable = TDW_TRY(verifyExecutable(*path, service.bundle));
    launch.arguments = { kServiceLaunchArgument };
    launch.standardInput = null.descriptor();
    launch.standardOutput = null.descriptor();
    launch.standardError = standardError.writer.descriptor();
    Process launcher = TDW_TRY(Process::launch(launch));
    standardError.writer.close();

    const Termination termination = TDW_TRY(waitForEnd(launcher, deadline, isCancelled));
    // Whether it can be reached decides: in a process that ignores SIGCHLD the status is lost.
    auto socket = connectToRunningService(service);
    if (!socket && termination.status != 0)
        return Error::posix(ECONNREFUSED,
            "The service " + *path + " does not come up (status "
                + std::to_string(termination.status) + "): " + textIn(standardError.reader));
    return socket;
}

void waitBeforeRetrying()
{
    // Nothing can be waited for: another process may start the service, or die trying.
    (void)::poll(nullptr, 0, static_cast<int>(kRetryInterval.count()));
}

} // namespace

Result<FileHandle> connectToTrustedSocket(const std::string& path)
{
    FileHandle socket = TDW_TRY(connectToLocalSocket(path));
    TDW_TRY(verifyPeer(socket.descriptor()));
    return socket;
}

Result<std::filesystem::path> serviceSocketPath(const ServiceIdentity& service)
{
    return TDW_TRY(runtimeDirectory(service.directory)) / (service.name + ".sock");
}

Result<FileHandle> connectToRunningService(const ServiceIdentity& service)
{
    return connectToTrustedSocket(TDW_TRY(serviceSocketPath(service)));
}

Result<FileHandle> connectToService(
    const ServiceIdentity& service, StartPolicy choice, const IsCancelled& isCancelled)
{
    const auto path = TDW_TRY(serviceSocketPath(service));
    const auto deadline = Clock::now() + kServiceStartBound;
    while (true) {
        auto socket = connectToTrustedSocket(path);
        const bool nobodyListens = !socket && meansNobodyListens(socket.error());
        if (socket || (!nobodyListens && !meansTryAgain(socket.error()))
            || (nobodyListens && choice == StartPolicy::Fail) || Clock::now() >= deadline)
            return socket;
        if (isCancelled())
            return Error::posix(ECANCELED, "The service is not wanted any more");

        const auto lock = nobodyListens ? lockForStarting(path.parent_path())
                                        : Result<FileHandle>(FileHandle());
        if (nobodyListens && lock) {
            // The process that held the lock until now may have started it.
            if (auto second = connectToTrustedSocket(path); second)
                return second;
            return startService(service, deadline, isCancelled);
        }
        waitBeforeRetrying();
    }
}

} // namespace tdw
