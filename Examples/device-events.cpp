// Shows devices as they come and go: a program with an event loop, here the one of the library. A
// program with a loop of its own gives `CallbackQueue` a function that posts to that instead.

#include <tidewell/CallbackQueue.h>
#include <tidewell/DeviceMonitor.h>
#include <tidewell/EventLoop.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

void showEvent(const tdw::DeviceEvent& event)
{
    std::printf("%s\n", tdw::deviceEventText(event).c_str());
    std::fflush(stdout);
}

/// The monitor goes on by itself; a person is told why nothing comes meanwhile.
void showOutage(const std::optional<tdw::Error>& reason)
{
    if (reason)
        std::fprintf(stderr, "device-events: %s\n", reason->failureReason().c_str());
}

} // namespace

int main()
{
    auto loop = tdw::EventLoop::create();
    if (!loop) {
        std::fprintf(stderr, "device-events: %s\n", loop.error().failureReason().c_str());
        return EXIT_FAILURE;
    }
    const auto monitor = tdw::DeviceMonitor::start(
        tdw::CallbackQueue(*loop), { .event = &showEvent, .outage = &showOutage });

    // Until there is something on standard input, or its end.
    const auto input = loop->whenReadable(STDIN_FILENO, [&] { loop->stop(); });
    if (!input)
        return EXIT_FAILURE;
    loop->run();
    return EXIT_SUCCESS;
}
