#include "Launch.h"

#include "CleanStart.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/LocalSocket.h"
#include "Platform/System/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <utility>

namespace tdw::service {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Less than a client waits for it, so that the client learns the reason.
constexpr std::chrono::milliseconds kReadinessBound = kServiceStartBound - 1s;

constexpr auto kLockBound = 5s;
constexpr auto kLockRetryInterval = 5ms;

/// Whether a byte comes before the end of the stream, and before the bound.
bool waitForByte(const FileHandle& reader, std::chrono::milliseconds bound)
{
    const auto deadline = Clock::now() + bound;
    pollfd entry { reader.descriptor(), POLLIN, 0 };
    int count = 0;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        count = ::poll(&entry, 1, static_cast<int>(std::max(left, 0ms).count()));
    } while (count < 0 && errno == EINTR);
    char byte = 0;
    return count > 0 && ::read(reader.descriptor(), &byte, 1) == 1;
}

} // namespace

Result<void> launchInBackground()
{
    Pipe readiness = TDW_TRY(Pipe::create());
    resetInheritedLimits();
    LaunchOptions launch;
    launch.executable = "/proc/self/exe";
    launch.programName = "tidewell-service";
    launch.arguments = { "--on-demand" };
    launch.environment = cleanEnvironment();
    launch.hasOnlyThatEnvironment = true;
    launch.standardOutput = readiness.writer.descriptor();
    Process service = TDW_TRY(Process::launch(launch));
    readiness.writer.close();
    if (!waitForByte(readiness.reader, kReadinessBound))
        return Error::posix(ETIMEDOUT, "The service does not start in time");
    // The service is to outlive this process, and the handle would end it.
    std::_Exit(EXIT_SUCCESS);
}

void becomeBackgroundProcess()
{
    (void)::setsid();
    if (::chdir("/") != 0) { /* The directory stays in use. */
    }
    constexpr char kReady = '\n';
    if (::write(STDOUT_FILENO, &kReady, 1) < 0) { /* The reader has gone. */
    }
    const FileHandle null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO })
        (void)::dup2(null.descriptor(), stream);
}

Result<FileHandle> lockForListening(const std::filesystem::path& path)
{
    auto lockPath = path;
    lockPath.replace_extension("lock");
    const auto deadline = Clock::now() + kLockBound;
    while (true) {
        FileHandle lock(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (!lock.isOpen())
            return Error::posix(errno, "Cannot open " + lockPath.string());
        if (::flock(lock.descriptor(), LOCK_EX | LOCK_NB) == 0)
            return lock;
        if (connectToLocalSocket(path) || Clock::now() >= deadline)
            return Error::posix(EEXIST, "Another service has " + path.string());
        (void)::poll(nullptr, 0, static_cast<int>(kLockRetryInterval.count()));
    }
}

} // namespace tdw::service
