#include "Commands/Commands.h"
#include "Devices/Companions.h"
#include "Devices/DeviceBoard.h"
#include "Devices/MultiplexerMonitor.h"
#include "Errors/CommandLineError.h"
#include "Requests/DeviceFeed.h"
#include "Text/BoardView.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tdw::cli {

namespace {

using Clock = DeviceBoard::Clock;

constexpr std::size_t kMostRequests = 8;

/// Ages are shown in minutes; looking twice as often keeps them true.
constexpr std::chrono::seconds kLongestPause { 30 };

/// Keeps a board up to date: by events, and by the requests that these lead to.
class LiveBoard {
public:
    explicit LiveBoard(const CommandContext& context)
        : m_context(context)
        , m_loop(context.requests.loop())
    {
    }

    Result<void> run()
    {
        // Made before signals are held, because looking its address up may take its time.
        (void)m_context.requests.multiplexer();
        const auto end = [this] {
            finish({});
        };
        std::vector<EventLoop::Source> sources;
        for (const int number : { SIGINT, SIGTERM, SIGHUP, SIGQUIT })
            sources.push_back(TDW_TRY(m_loop.onSignal(number, end)));
        sources.push_back(TDW_TRY(m_loop.onSignal(SIGTSTP, [this] { m_view->stopProcess(); })));
        sources.push_back(TDW_TRY(m_loop.onSignal(SIGWINCH, [this] { m_view->redraw(); })));
        sources.push_back(whenOutputIsUnread(m_loop, end));

        m_view = boardView(m_context.console);
        if (m_view->hasKeys())
            sources.push_back(TDW_TRY(m_loop.whenReadable(STDIN_FILENO, [this] { readKeys(); })));
        const MultiplexerMonitor monitor(m_context.requests,
            [this](const std::vector<Error>& problems) { m_multiplexerProblems = problems; });
        const auto feed = TDW_TRY(DeviceFeed::open(m_context.requests,
            { .event = [this](const DeviceEvent& event) { received(event); },
                .outage = [this](const std::optional<Error>& reason) { m_outage = reason; },
                .end =
                    [this](const Error& reason) {
                        finish(whileTrying("Cannot watch the devices", reason));
                    } }));
        // The condition is asked after each handler, which is when there may be something new.
        m_loop.runUntil([this] {
            if (!m_result)
                update();
            return m_result.has_value();
        });
        m_view.reset();
        return *m_result;
    }

private:
    void received(const DeviceEvent& event)
    {
        m_board.received(event, Clock::now());
        keep(m_view->happened(event));
    }

    void readKeys()
    {
        std::array<char, 64> bytes {};
        const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count > 0 && !m_view->typed({ bytes.data(), static_cast<std::size_t>(count) }))
            finish({});
    }

    /// Sends what is to be asked, shows what is known, and sees to it that time passes.
    void update()
    {
        const auto now = Clock::now();
        while (m_running < kMostRequests) {
            const auto udid = m_board.nextToAsk(now);
            if (!udid)
                break;
            ask(*udid);
        }
        std::vector<Error> problems = m_multiplexerProblems;
        if (m_outage)
            problems.push_back(*m_outage);
        keep(m_view->show(m_board, problems));

        const auto due = m_running < kMostRequests ? m_board.nextDue() : std::nullopt;
        const auto next = std::min(due.value_or(Clock::time_point::max()), now + kLongestPause);
        if (next != m_nextUpdate) {
            m_nextUpdate = next;
            m_timer = m_loop.after(
                std::max(next - now, Clock::duration::zero()), [this] { m_nextUpdate = {}; });
        }
    }

    /// The multiplexer knows without asking the device whether that may be asked.
    void ask(const std::string& udid)
    {
        ++m_running;
        m_context.requests.multiplexer().findPairRecord(
            udid, [this, udid](const Result<bool>& isPaired) {
                if (!isPaired || *isPaired)
                    return askPaired(udid, isPaired);
                --m_running;
                m_board.notPaired(udid, Clock::now());
            });
    }

    void askPaired(const std::string& udid, const Result<bool>& isPaired)
    {
        const auto take = [this, udid](const Result<Value>& info) {
            --m_running;
            for (const std::string& identifier : m_board.answered(udid, info, Clock::now()))
                askCompanion(udid, identifier);
        };
        if (!isPaired)
            return take(isPaired.error());
        m_context.requests.send(
            DeviceInfoQuery {
                .udid = udid, .includesCompanionIdentifiers = true, .mayPair = false },
            take);
    }

    /// Each watch in a request of its own, so that one that does not answer hides no other.
    void askCompanion(const std::string& udid, const std::string& identifier)
    {
        const CompanionQuestion question { .detail = CompanionDetail::Battery, .udid = udid };
        sendCompanionRequest(m_context.requests, question, identifier,
            [this, udid, identifier](const Result<Value>& entry) {
                m_board.companionAnswered(udid, identifier, entry);
                if (entry && m_namedCompanions.insert(identifier).second)
                    askCompanionName(udid, identifier);
            });
    }

    void askCompanionName(const std::string& udid, const std::string& identifier)
    {
        sendCompanionRequest(m_context.requests, { .udid = udid }, identifier,
            [this, udid, identifier](const Result<Value>& entry) {
                if (entry)
                    m_board.companionAnswered(udid, identifier, entry);
            });
    }

    /// Ends where the output cannot be written.
    void keep(const Result<void>& written)
    {
        if (!written)
            finish(isClosedOutput(written.error()) ? Result<void>() : written);
    }

    void finish(Result<void> result)
    {
        if (!m_result)
            m_result = std::move(result);
    }

    const CommandContext& m_context;
    EventLoop& m_loop;
    std::unique_ptr<BoardView> m_view;
    DeviceBoard m_board;
    std::size_t m_running = 0;
    std::set<std::string> m_namedCompanions;
    std::vector<Error> m_multiplexerProblems;
    std::optional<Error> m_outage;
    std::optional<Result<void>> m_result;
    EventLoop::Source m_timer;
    Clock::time_point m_nextUpdate {};
};

} // namespace

Result<void> watchCommand(const CommandContext& context)
{
    (void)std::signal(SIGPIPE, SIG_IGN);
    return LiveBoard(context).run();
}

} // namespace tdw::cli
