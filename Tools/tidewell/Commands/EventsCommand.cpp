#include "Commands/Commands.h"
#include "Errors/CommandLineError.h"
#include "Errors/ErrorText.h"
#include "Events/DeviceFeed.h"
#include "Events/EventText.h"
#include "Events/SignalWatch.h"
#include "Output/Json.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>

namespace tdw::cli {

namespace {

Result<void> print(const Session& session, const DeviceEvent& event)
{
    const Date now = std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
    return session.console.print(session.arguments.has("--json")
            ? jsonLine(eventValue(event, now))
            : eventText(event, now, session.console.outputColours()));
}

/// Says once for each outage that there is one.
class OutageNotice {
public:
    explicit OutageNotice(const Console& console)
        : m_console(console)
    {
    }

    void update(const std::optional<Error>& outage)
    {
        if (outage && !m_isSaid)
            m_console.say(
                warningText(whileTrying("No events come until there is a service again", *outage),
                    m_console.errorColours()));
        m_isSaid = outage.has_value();
    }

private:
    const Console& m_console;
    bool m_isSaid = false;
};

Result<void> printEvents(const Session& session, DeviceFeed& feed, const SignalWatch& signals)
{
    OutageNotice notice(session.console);
    while (true) {
        std::array entries { pollfd { signals.descriptor(), POLLIN, 0 },
            pollfd { STDOUT_FILENO, 0, 0 }, pollfd { feed.descriptor(), POLLIN, 0 } };
        (void)poll(entries.data(), entries.size(), -1);
        const bool isUnread = (entries[1].revents & (POLLERR | POLLHUP)) != 0;
        // Taken, because a signal that stays would end the process after all.
        if (signals.take() || isUnread)
            return {};
        for (const DeviceEvent& event : TDW_TRY(feed.take()))
            TDW_TRY(print(session, event));
        notice.update(feed.outage());
    }
}

} // namespace

Result<void> eventsCommand(const Session& session)
{
    // A reader that goes is how a stream ends, and no reason to be killed.
    (void)std::signal(SIGPIPE, SIG_IGN);
    const auto signals = TDW_TRY(SignalWatch::create({ SIGINT, SIGTERM }));
    const auto feed = TDW_TRY(openDeviceFeed(session.requests.road()));
    const auto result = printEvents(session, *feed, signals);
    if (result || isClosedOutput(result.error()))
        return {};
    if (exitStatusOf(result.error()) == ExitStatus::OutputNotWritten)
        return result.error();
    return whileTrying("Cannot tell about events", result.error());
}

} // namespace tdw::cli
