#include "Output/Console.h"

#include "Errors/CommandLineError.h"
#include "Platform/FileHandle.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <span>

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

bool isClosedOutput(const Error& error)
{
    const auto chain = causeChain(error);
    return exitStatusOf(error) == ExitStatus::OutputNotWritten
        && std::any_of(chain.begin(), chain.end(), [](const Error& link) {
               return link.domain() == kPosixErrorDomain && link.code() == EPIPE;
           });
}

} // namespace tdw::cli
