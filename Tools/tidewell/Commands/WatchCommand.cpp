#include "Commands/Commands.h"
#include "Devices/MultiplexerProbe.h"
#include "Errors/CommandLineError.h"
#include "Events/DeviceFeed.h"
#include "Events/SignalWatch.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWServer.h"
#include "Pairing/PendingRequest.h"
#include "Watch/BoardView.h"
#include "Watch/DeviceBoard.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

namespace tdw::cli {

namespace {

using Clock = std::chrono::steady_clock;

/// Batteries change slowly, and a question costs some of what it asks for.
constexpr std::chrono::seconds kRefreshInterval { 60 };

constexpr std::size_t kMostRequests = 8;

/// Any connection will do.
constexpr const char* kAnyConnection = "0";

/// Keeps a board up to date: by events, and by the requests that these lead to.
class Watch {
public:
    Watch(const Session& session, DeviceFeed& feed, const SignalWatch& signals, BoardView& view)
        : m_session(session)
        , m_feed(feed)
        , m_signals(signals)
        , m_view(view)
    {
    }

    Result<void> run()
    {
        while (wait()) {
            while (const auto signalNumber = m_signals.take()) {
                if (*signalNumber == SIGTSTP)
                    m_view.stopProcess();
                else if (*signalNumber != SIGWINCH)
                    return {};
            }
            const auto events = TDW_TRY(m_feed.take());
            for (const DeviceEvent& event : events)
                m_board.received(event);
            takeAnswers();
            if (Clock::now() >= m_nextRefresh) {
                m_nextRefresh = Clock::now() + kRefreshInterval;
                m_board.refresh();
            }
            TDW_TRY(ask());
            TDW_TRY(m_view.show(m_board, events, m_feed.outage()));
        }
        return {};
    }

private:
    struct Asked {
        std::string udid;
        bool isForWatches;
        PendingRequest request;
    };

    /// Waits until there is something to do. @return whether anybody reads what is written
    bool wait() const
    {
        std::vector<pollfd> entries { { STDOUT_FILENO, 0, 0 },
            { m_signals.descriptor(), POLLIN, 0 }, { m_feed.descriptor(), POLLIN, 0 } };
        for (const Asked& asked : m_asked)
            entries.push_back({ asked.request.descriptor(), POLLIN, 0 });
        const auto left
            = std::chrono::ceil<std::chrono::milliseconds>(m_nextRefresh - Clock::now());
        (void)poll(entries.data(), entries.size(),
            static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        return (entries.front().revents & (POLLERR | POLLHUP)) == 0;
    }

    void takeAnswers()
    {
        std::vector<Asked> open;
        for (Asked& asked : std::exchange(m_asked, {})) {
            pollfd entry { asked.request.descriptor(), POLLIN, 0 };
            if (poll(&entry, 1, 0) == 1)
                take(asked);
            else
                open.push_back(std::move(asked));
        }
        std::ranges::move(open, std::back_inserter(m_asked));
    }

    void take(Asked& asked)
    {
        const auto answer = asked.request.answer();
        if (asked.isForWatches)
            return m_board.watchesAnswered(asked.udid, answer);
        auto watches = m_board.answered(asked.udid, answer);
        if (watches.empty())
            return;
        std::vector<std::string> arguments { asked.udid, kAnyConnection };
        std::ranges::move(watches, std::back_inserter(arguments));
        (void)send(asked.udid, kTidewellServerCompanionBattery, std::move(arguments));
    }

    Result<void> ask()
    {
        while (m_asked.size() < kMostRequests) {
            const auto udid = m_board.nextToAsk();
            if (!udid)
                break;
            // The multiplexer knows without asking the device.
            if (holdsPairing(multiplexerAddress(), *udid))
                TDW_TRY(send(*udid, kTidewellServerInfo,
                    { *udid, kAnyConnection,
                        std::string(kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag) }));
            else
                m_board.isStranger(*udid);
        }
        return {};
    }

    Result<void> send(
        const std::string& udid, std::string_view server, std::vector<std::string> arguments)
    {
        auto request
            = TDW_TRY(PendingRequest::send(m_session.requests, server, std::move(arguments)));
        m_asked.push_back({ udid, server == kTidewellServerCompanionBattery, std::move(request) });
        return {};
    }

    const Session& m_session;
    DeviceFeed& m_feed;
    const SignalWatch& m_signals;
    BoardView& m_view;
    DeviceBoard m_board;
    std::vector<Asked> m_asked;
    Clock::time_point m_nextRefresh = Clock::now() + kRefreshInterval;
};

} // namespace

Result<void> watchCommand(const Session& session)
{
    (void)std::signal(SIGPIPE, SIG_IGN);
    const auto signals
        = TDW_TRY(SignalWatch::create({ SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH }));
    const auto feed = TDW_TRY(openDeviceFeed(session.requests.road()));
    const auto view = boardView(session.console);
    const auto result = Watch(session, *feed, signals, *view).run();
    if (result || isClosedOutput(result.error()))
        return {};
    if (exitStatusOf(result.error()) == ExitStatus::OutputNotWritten)
        return result.error();
    return whileTrying("Cannot watch the devices", result.error());
}

} // namespace tdw::cli
