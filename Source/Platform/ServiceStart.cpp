#include "Platform/ServiceStart.h"

#include "Platform/LocalSocket.h"
#include "Platform/Process.h"
#include "Platform/RuntimeDirectory.h"
#include "Platform/Text.h"
#include "Platform/Trust.h"

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

/// Between two looks whether somebody else has started the service by now.
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
    if (!lock.isOpen() || ::flock(lock.descriptor(), LOCK_EX | LOCK_NB) != 0)
        return Error::posix(errno, "Cannot lock the directory " + directory.string());
    return lock;
}

/// The last words of a process that has ended, as far as a pipe holds them.
std::string wordsIn(const FileHandle& reader)
{
    std::array<char, 4096> text {};
    pollfd entry { reader.descriptor(), POLLIN, 0 };
    if (::poll(&entry, 1, 0) <= 0)
        return {};
    const ssize_t count = ::read(reader.descriptor(), text.data(), text.size());
    std::string words(text.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    while (!words.empty() && words.back() == '\n')
        words.pop_back();
    return words;
}

Result<void> startService(const ServiceIdentity& service, Clock::time_point deadline)
{
    const auto path = service.bundle.pathForAuxiliaryExecutable(service.executable);
    if (!path)
        return Error::posix(ENOENT, "Cannot find the executable \"" + service.executable + "\"");

    Pipe standardError = TDW_TRY(Pipe::create());
    const FileHandle null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    LaunchOptions launch;
    launch.executable = TDW_TRY(verifyExecutable(*path, service.bundle.auxiliaryDirectory()));
    launch.arguments = { kServiceLaunchArgument };
    launch.standardInput = null.descriptor();
    launch.standardOutput = null.descriptor();
    launch.standardError = standardError.writer.descriptor();
    Process launcher = TDW_TRY(Process::launch(launch));
    standardError.writer.close();

    const auto bound = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    const auto termination
        = launcher.waitUntilExit(std::max<std::chrono::milliseconds>(bound, 0ms));
    if (!termination)
        return Error::posix(ETIMEDOUT, "The service " + *path + " does not come up");
    if (termination->status != 0)
        return Error::posix(ECONNREFUSED,
            "The service " + *path + " does not come up (status "
                + std::to_string(termination->status) + "): " + wordsIn(standardError.reader));
    return {};
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

Result<FileHandle> connectToService(const ServiceIdentity& service, IfNobodyListens choice,
    const std::function<bool()>& isCancelled)
{
    const auto path = TDW_TRY(serviceSocketPath(service.name));
    const auto deadline = Clock::now() + kServiceStartBound;
    while (true) {
        auto socket = connectToTrustedSocket(path);
        const bool nobodyListens = !socket && meansNobodyListens(socket.error());
        if (socket || (!nobodyListens && !meansTryAgain(socket.error()))
            || (nobodyListens && choice == IfNobodyListens::Fail) || Clock::now() >= deadline
            || isCancelled())
            return socket;

        auto lock = nobodyListens ? lockForStarting(path.parent_path())
                                  : Result<FileHandle>(FileHandle());
        // Whoever held the lock until now may have started it.
        if (lock && nobodyListens) {
            if (auto second = connectToTrustedSocket(path); second)
                return second;
            TDW_TRY(startService(service, deadline));
            return connectToTrustedSocket(path);
        }
        waitBeforeRetrying();
    }
}

} // namespace tdw
