#include "Errors/ExitStatus.h"
#include "Run.h"
#include "Terminal/Console.h"

#include <fcntl.h>
#include <unistd.h>

#include <exception>

namespace {

/// A standard stream that was closed before the start would be replaced by the first descriptor
/// that is opened, and data would go astray. What stands in for it here refuses to be written.
void occupyStandardStreams()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0)
            // NOLINTNEXTLINE(android-cloexec-open): children inherit standard streams
            (void)open("/dev/null", O_RDONLY);
    }
}

} // namespace

int main(int argc, char* argv[])
{
    occupyStandardStreams();
    const tdw::cli::Console console;
    try {
        return tdw::cli::run(
            std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc), console);
    } catch (const std::exception& exception) {
        console.say(std::string("tidewell: Unexpected failure: ") + exception.what() + "\n");
        return static_cast<int>(tdw::cli::ExitStatus::Failure);
    }
}
