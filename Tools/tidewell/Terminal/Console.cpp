#include "Terminal/Console.h"

#include "Errors/CommandLineError.h"
#include "Platform/System/FileHandle.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <span>
#include <utility>

namespace tdw::cli {

namespace {

ColourMode coloursOf(int descriptor)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    return colourMode(isCapableTerminal(descriptor), std::getenv("NO_COLOR"));
}

} // namespace

Console::Console()
    : m_outputColours(coloursOf(STDOUT_FILENO))
    , m_errorColours(coloursOf(STDERR_FILENO))
    , m_canRedraw(isCapableTerminal(STDERR_FILENO))
{
}

Result<void> Console::print(std::string_view text) const
{
    const auto written = writeToDescriptor(STDOUT_FILENO, std::as_bytes(std::span(text)));
    if (written)
        return {};
    return commandLineError({ .status = ExitStatus::OutputNotWritten,
        .reason = "The output is incomplete",
        .cause = Error::posix(
            static_cast<int>(written.error().code()), "Cannot write to standard output") });
}

void Console::say(std::string_view message) const
{
    (void)writeToDescriptor(STDERR_FILENO, std::as_bytes(std::span(message)));
}

EventLoop::Source whenOutputIsUnread(EventLoop& loop, std::function<void()> handler)
{
    struct stat status { };
    if (fstat(STDOUT_FILENO, &status) != 0 || !S_ISFIFO(status.st_mode))
        return {};
    // The writing end of a pipe has nothing to read: it is ready only on its error.
    auto source = loop.whenReadable(STDOUT_FILENO, [handler = std::move(handler)] {
        pollfd entry { STDOUT_FILENO, 0, 0 };
        if (poll(&entry, 1, 0) == 1 && (entry.revents & (POLLERR | POLLHUP)) != 0)
            handler();
    });
    return source ? *std::move(source) : EventLoop::Source();
}

bool isClosedOutput(const Error& error)
{
    const auto chain = causeChain(error);
    return exitStatusOf(error) == ExitStatus::OutputNotWritten
        && std::any_of(chain.begin(), chain.end(), [](const Error& link) {
               return link.domain() == kPosixErrorDomain && link.code() == EPIPE;
           });
}

} // namespace tdw::cli
