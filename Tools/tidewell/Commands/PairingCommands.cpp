#include "Commands/Commands.h"
#include "Devices/DeviceFailure.h"
#include "Devices/DeviceLookup.h"
#include "Devices/PairingConversation.h"
#include "Devices/PairingState.h"
#include "Errors/CommandLineError.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Support/TDWErrorKinds.h"
#include "Terminal/ProgressLine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>

namespace tdw::cli {

namespace {

using Clock = EventLoop::Clock;
using Next = PairingConversation::Next;

constexpr std::chrono::seconds kUsualTimeout { 60 };

/// A device that is asked more often keeps the multiplexer busy with nothing else.
constexpr std::chrono::seconds kPause { 2 };

/// Attempts to pair until the device has decided.
class Pairing {
public:
    Pairing(const CommandContext& context, std::string udid)
        : m_context(context)
        , m_udid(std::move(udid))
        , m_timeout(context.arguments.secondsOf("--timeout").value_or(kUsualTimeout))
        , m_deadline(Clock::now() + m_timeout)
        , m_progress(context.console)
    {
    }

    Result<Value> finish()
    {
        TDW_TRY(catchSignals());
        m_progress.show("Asking the device to trust this computer.", "");
        while (Clock::now() < m_deadline) {
            const auto answer = ask(PairingQuery { PairingQuery::Action::Pair, m_udid });
            if (!answer)
                break;
            const auto reason = m_conversation.needsReason(*answer) ? askForReason() : std::nullopt;
            auto decided = m_conversation.next(*answer, reason);
            if (!decided)
                return trustsAfter(decided.error()) ? Result<Value>(paired()) : decided.error();
            auto next = *decided;
            if (next == Next::Done)
                return *answer;
            // One that trusts this computer already refuses to pair while it is locked.
            if (next == Next::TryAgain && isPairedNow())
                return paired();
            while (next == Next::LookAgain && Clock::now() < m_deadline) {
                pause();
                if (isPairedNow())
                    return paired();
                if (isBack())
                    next = Next::TryAgain;
            }
            pause();
        }
        return timeout();
    }

private:
    Result<void> catchSignals()
    {
        for (std::size_t i = 0; i < kSignals.size(); ++i)
            m_signals[i] = TDW_TRY(m_context.requests.loop().onSignal(
                kSignals[i], [this, number = kSignals[i]] { m_signal = number; }));
        return {};
    }

    /// Runs the loop until a condition holds, or for a time. Does not return where the user
    /// interrupts.
    template <typename Condition>
    bool wait(Condition condition, Clock::time_point until)
    {
        const bool holds = m_context.requests.loop().runUntil(
            [&] { return m_signal != 0 || condition(); }, std::min(until, m_deadline));
        if (m_signal == 0)
            return holds;
        m_progress.clear();
        m_context.console.say("tidewell: Interrupted; the device may go on asking.\n");
        m_context.requests.endServers();
        // The parent process sees what ended this one.
        m_signals = {};
        std::raise(m_signal);
        std::abort(); // The default of both signals is to end the process.
    }

    void pause()
    {
        if (!m_conversation.instruction().empty())
            m_progress.show(m_conversation.instruction(), remainingTime());
        wait([] { return false; }, Clock::now() + kPause);
    }

    /// @return none at the deadline
    template <typename Answer>
    std::optional<Answer> waitForAnswer(
        const std::function<void(std::function<void(Answer)>)>& start)
    {
        const auto answer = std::make_shared<std::optional<Answer>>();
        start([answer](Answer value) { answer->emplace(std::move(value)); });
        wait([&] { return answer->has_value(); }, m_deadline);
        return *answer;
    }

    std::optional<Result<Value>> ask(const DeviceQuery& query)
    {
        return waitForAnswer<Result<Value>>(
            [&](auto handler) { m_context.requests.send(query, std::move(handler)); });
    }

    /// The device's own error for refusing, which its pairing state does not tell.
    std::optional<Error> askForReason()
    {
        const auto info = ask(DeviceInfoQuery { .udid = m_udid });
        if (!info || !*info)
            return std::nullopt;
        const auto warnings = warningsIn(**info);
        const auto found = std::ranges::find_if(warnings, isUnpairedDevice);
        return found == warnings.end() ? std::nullopt : std::optional(*found);
    }

    bool isBack()
    {
        const auto udids = waitForAnswer<Result<std::vector<std::string>>>([&](auto handler) {
            m_context.requests.multiplexer().listDevices(std::move(handler));
        });
        return udids && *udids && std::ranges::any_of(**udids, [&](const std::string& udid) {
            return comparableUdid(udid) == comparableUdid(m_udid);
        });
    }

    /// Whether the device trusts this computer although the request failed. A device that trusts
    /// without a question can leave before it answers. A managed device refuses each pairing
    /// request, also where a pairing exists.
    bool trustsAfter(const Error& error)
    {
        if (isDeviceNotFound(error) || isConnectionFailure(error))
            pause();
        else if (exitStatusOf(error) != ExitStatus::NotTrusted)
            return false;
        return isPairedNow();
    }

    static Value paired()
    {
        return Dictionary { { kTDWDeviceInfoPairingState, TDWDevicePairingStatePaired } };
    }

    /// Whether there is a pair record, with which the device opens a session.
    bool isPairedNow()
    {
        const auto record = waitForAnswer<Result<bool>>([&](auto handler) {
            m_context.requests.multiplexer().findPairRecord(m_udid, std::move(handler));
        });
        if (!record || !*record || !**record)
            return false;
        const auto info = ask(DeviceInfoQuery { .udid = m_udid, .mayPair = false });
        const auto state = info && *info ? pairingStateOf(**info) : Result<std::int64_t>(0);
        return state && *state == TDWDevicePairingStatePaired;
    }

    std::string remainingTime() const
    {
        const auto left = std::chrono::ceil<std::chrono::seconds>(m_deadline - Clock::now());
        return "(" + std::to_string(left.count()) + " s left)";
    }

    Error timeout() const
    {
        const auto seconds = std::to_string(m_timeout.count());
        const bool isInstructed = !m_conversation.instruction().empty();
        return commandLineError({ .status = ExitStatus::TimedOut,
            .reason = isInstructed ? "The device was still waiting after " + seconds + " s."
                                   : "The device has not answered within " + seconds + " s.",
            .advice = isInstructed ? std::string(m_conversation.instruction())
                                   : "Unlock the device, reconnect it, and try again." });
    }

    static constexpr std::array kSignals { SIGINT, SIGTERM };

    const CommandContext& m_context;
    const std::string m_udid;
    const std::chrono::seconds m_timeout;
    const Clock::time_point m_deadline;
    ProgressLine m_progress;
    PairingConversation m_conversation;
    int m_signal = 0;
    std::array<EventLoop::Source, kSignals.size()> m_signals;
};

} // namespace

Result<void> pairCommand(const CommandContext& context)
{
    const auto device
        = TDW_TRY(findDeviceOnCable(context.requests, context.arguments.words.front()));
    auto answer = Pairing(context, device.udid).finish();
    if (!answer)
        return whileTrying("Cannot pair with \"" + device.udid + "\"",
            explainedFailure(context.requests, device.udid, answer.error()));
    return reportDone(context, *answer, "\"" + device.udid + "\" trusts this computer.");
}

Result<void> unpairCommand(const CommandContext& context)
{
    const auto device
        = TDW_TRY(findDeviceOnCable(context.requests, context.arguments.words.front()));
    const auto answer
        = context.requests.ask(PairingQuery { PairingQuery::Action::Unpair, device.udid });
    if (answer)
        return reportDone(
            context, *answer, "\"" + device.udid + "\" is no longer paired with this computer.");
    const std::string attempt = "Cannot unpair \"" + device.udid + "\"";
    if (!isForgottenPairing(answer.error()))
        return whileTrying(
            attempt, explainedFailure(context.requests, device.udid, answer.error()));
    return whileTrying(attempt,
        commandLineError({ .status = ExitStatus::NotTrusted,
            .reason = "This computer is not paired with it.",
            .advice = "There is nothing to undo.",
            .cause = answer.error() }));
}

} // namespace tdw::cli
