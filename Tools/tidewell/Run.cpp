#include "Run.h"

#include "CommandLine/Arguments.h"
#include "CommandLine/CommandTable.h"
#include "CommandLine/Help.h"
#include "Commands/Commands.h"
#include "Errors/CommandLineError.h"
#include "Errors/ExitStatus.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TidewellVersion.h"
#include "Requests/RunningService.h"
#include "Requests/TraceListener.h"
#include "Text/ErrorText.h"
#include "Text/Json.h"

#include <memory>

namespace tdw::cli {

namespace {

using Transport = DeviceRequests::Transport;

Result<Arguments> parse(const std::vector<std::string>& texts)
{
    return checkArguments(TDW_TRY(splitArguments(texts)));
}

/// A service that looks at another multiplexer has other devices, and is passed over.
/// Errors: `ExitStatus::ServiceUnavailable`, where one runs and does not answer
Result<Transport> transportFor(const Arguments& arguments)
{
    if (arguments.has("--direct"))
        return Transport::Direct;
    if (!takesOption(*arguments.command, *findOption("--direct")))
        return Transport::Service;
    const auto running = TDW_TRY(findRunningService());
    return running && hasOtherDevices(*running) ? Transport::Direct : Transport::Service;
}

/// Collects the steps where an option asks for them. Before anything else runs.
std::unique_ptr<TraceListener> startTrace(
    const Arguments& arguments, const Console& console, TraceEvent::Clock::time_point start)
{
    const bool isVerbose = arguments.has("--verbose");
    if (!isVerbose && !arguments.command->collectsTrace)
        return nullptr;
    TraceListener::Handler handler;
    if (isVerbose)
        handler = [&console, start](const TraceEvent& step) {
            console.say(traceLine(step, start));
        };
    auto listener = TraceListener::start(std::move(handler));
    if (listener)
        return *std::move(listener);
    console.say(warningText(whileTrying("No trace is collected", listener.error()),
        { console.errorColours(), detailOf(isVerbose) }));
    return nullptr;
}

Result<void> runCommand(const Arguments& arguments, const Console& console)
{
    const auto start = TraceEvent::Clock::now();
    const auto trace = startTrace(arguments, console, start);
    const Transport transport = TDW_TRY(transportFor(arguments));
    // Never destroyed: its end would wait for threads, of which one may be starting a service.
    static DeviceRequests* const requests
        = std::make_unique<DeviceRequests>(transport, TDW_TRY(EventLoop::create())).release();
    auto result = arguments.command->function({ arguments, *requests, console, trace.get() });
    requests->endServers();
    if (trace)
        trace->stop();
    if (trace && arguments.has("--verbose")) {
        for (const TraceEvent& step : trace->steps()) {
            if (!step.end)
                console.say(traceLine(step, start));
        }
    }
    return result;
}

Result<void> carryOut(const Arguments& arguments, const Console& console)
{
    if (arguments.has("--version"))
        return console.print("tidewell " + std::string(TidewellVersionString) + "\n");
    if (arguments.has("--help"))
        return console.print(
            arguments.command ? commandHelpText(*arguments.command) : overviewText());
    return runCommand(arguments, console);
}

} // namespace

int run(const std::vector<std::string>& texts, const Console& console)
{
    const auto arguments = parse(texts);
    const auto result = arguments ? carryOut(*arguments, console) : arguments.error();
    if (result)
        return static_cast<int>(ExitStatus::Success);

    // A reader that has gone is not reported.
    const auto status = exitStatusOf(result.error());
    if (!isClosedOutput(result.error())) {
        if (arguments && arguments->has("--json") && !isAnswered(result.error())
            && status != ExitStatus::OutputNotWritten)
            (void)console.print(jsonLine(TDWClientErrorResponse(result.error())));
        const bool isVerbose = arguments && arguments->has("--verbose");
        console.say(errorText(result.error(), { console.errorColours(), detailOf(isVerbose) }));
    }
    return static_cast<int>(status);
}

} // namespace tdw::cli
