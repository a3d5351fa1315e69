#include "Commands/Commands.h"
#include "Devices/MultiplexerMonitor.h"
#include "Errors/CommandLineError.h"
#include "Requests/DeviceFeed.h"
#include "Text/EventText.h"
#include "Text/Json.h"

#include <chrono>
#include <csignal>
#include <utility>

namespace tdw::cli {

namespace {

class EventPrinter {
public:
    explicit EventPrinter(const CommandContext& context)
        : m_context(context)
    {
    }

    /// Prints events until it is told to end.
    Result<void> run()
    {
        EventLoop& loop = m_context.requests.loop();
        const auto end = [this] {
            finish({});
        };
        const auto interrupt = TDW_TRY(loop.onSignal(SIGINT, end));
        const auto terminate = TDW_TRY(loop.onSignal(SIGTERM, end));
        const auto reader = whenOutputIsUnread(loop, end);
        const MultiplexerMonitor monitor(m_context.requests,
            [this](const std::vector<Error>& problems) { problemsChanged(problems); });
        const auto feed = TDW_TRY(DeviceFeed::open(m_context.requests,
            { .event = [this](const DeviceEvent& event) { print(event); },
                .outage = [this](const std::optional<Error>& reason) { outageChanged(reason); },
                .end =
                    [this](const Error& reason) {
                        finish(whileTrying("Cannot show events", reason));
                    } }));
        loop.runUntil([this] { return m_result.has_value(); });
        return *m_result;
    }

private:
    void print(const DeviceEvent& event)
    {
        const Date now
            = std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
        const auto printed = m_context.console.print(m_context.arguments.has("--json")
                ? jsonLine(eventValue(event, now))
                : eventText(event, now, m_context.console.outputColours()));
        if (!printed)
            finish(isClosedOutput(printed.error()) ? Result<void>() : printed);
    }

    void outageChanged(const std::optional<Error>& reason)
    {
        if (reason && !std::exchange(m_isOutageSaid, true))
            warn(m_context, whileTrying("No events come until there is a service again", *reason));
        m_isOutageSaid = reason.has_value();
    }

    void problemsChanged(const std::vector<Error>& problems)
    {
        for (const Error& problem : problems)
            warn(m_context, problem);
        if (problems.empty())
            m_context.console.say("tidewell: usbmuxd answers again.\n");
    }

    void finish(Result<void> result)
    {
        if (!m_result)
            m_result = std::move(result);
    }

    const CommandContext& m_context;
    std::optional<Result<void>> m_result;
    bool m_isOutageSaid = false;
};

} // namespace

Result<void> eventsCommand(const CommandContext& context)
{
    // A reader that goes is how a stream ends, and no reason to be killed.
    (void)std::signal(SIGPIPE, SIG_IGN);
    return EventPrinter(context).run();
}

} // namespace tdw::cli
