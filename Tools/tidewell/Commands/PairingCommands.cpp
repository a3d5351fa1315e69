#include "Commands/Commands.h"
#include "Commands/DeviceRequest.h"
#include "Devices/DeviceLookup.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWServer.h"
#include "Output/ProgressLine.h"
#include "Pairing/Interruption.h"
#include "Pairing/PairingConversation.h"
#include "Pairing/PendingRequest.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

namespace tdw::cli {

namespace {

using Clock = std::chrono::steady_clock;
using Awaited = Interruption::Awaited;

constexpr std::chrono::seconds kUsualTimeout { 60 };

/// A device that is asked more often keeps the multiplexer busy with nothing else.
constexpr std::chrono::seconds kPause { 2 };

/// The codes of an unpairing for want of a pairing; they differ between releases of the library.
constexpr std::int64_t kInvalidConfiguration = -2;
constexpr std::int64_t kInvalidHostID = -21;

/// Attempts to pair until the device has made up its mind.
class Pairing {
public:
    Pairing(const Session& session, std::string udid, Interruption interruption)
        : m_session(session)
        , m_udid(std::move(udid))
        , m_timeout(session.arguments.secondsOf("--timeout").value_or(kUsualTimeout))
        , m_deadline(Clock::now() + m_timeout)
        , m_interruption(std::move(interruption))
        , m_progress(session.console)
    {
    }

    Result<Value> finish()
    {
        m_progress.show("Asking the device to trust this computer.", "");
        while (Clock::now() < m_deadline) {
            auto request = TDW_TRY(PendingRequest::send(m_session.requests, kTidewellServerPairing,
                { std::string(kTDWPairingServerActionPair), m_udid }));
            if (wait(request.descriptor(), m_deadline) == Awaited::Deadline)
                break;
            auto answer = request.answer();
            if (TDW_TRY(m_conversation.next(answer)) == PairingConversation::Next::Done)
                return answer;
            m_progress.show(m_conversation.instruction(), remainingTime());
            wait(-1, std::min(Clock::now() + kPause, m_deadline));
        }
        return timeout();
    }

private:
    /// Does not return where the user interrupts.
    Awaited wait(int descriptor, Clock::time_point until)
    {
        const auto awaited = m_interruption.waitFor(descriptor, until);
        if (awaited == Awaited::Interrupted) {
            m_progress.clear();
            m_session.console.say("tidewell: Interrupted; the device may go on asking.\n");
            m_interruption.endProcess();
        }
        return awaited;
    }

    std::string remainingTime() const
    {
        const auto left = std::chrono::ceil<std::chrono::seconds>(m_deadline - Clock::now());
        return "(" + std::to_string(left.count()) + " s left)";
    }

    Error timeout() const
    {
        const auto seconds = std::to_string(m_timeout.count());
        const bool isUserAwaited = !m_conversation.instruction().empty();
        return commandLineError({ .status = ExitStatus::TimedOut,
            .reason = (isUserAwaited ? "The device's user has not answered within "
                                     : "The device has not answered within ")
                + seconds + " s.",
            .advice = isUserAwaited ? std::string(m_conversation.instruction())
                                    : "Unlock the device, reconnect it, and try again." });
    }

    const Session& m_session;
    std::string m_udid;
    std::chrono::seconds m_timeout;
    Clock::time_point m_deadline;
    Interruption m_interruption;
    ProgressLine m_progress;
    PairingConversation m_conversation;
};

bool isForWantOfPairing(const Error& error)
{
    return error.domain() == kTDWLockdownErrorDomain
        && (error.code() == kInvalidConfiguration || error.code() == kInvalidHostID);
}

} // namespace

Result<void> pairCommand(const Session& session)
{
    const auto device
        = TDW_TRY(findDeviceOnCable(session.requests, session.arguments.words.front()));
    auto answer = Pairing(session, device.udid, TDW_TRY(Interruption::create())).finish();
    if (!answer)
        return whileTrying("Cannot pair with \"" + device.udid + "\"", answer.error());
    return reportDone(session, *answer, "\"" + device.udid + "\" trusts this computer.");
}

Result<void> unpairCommand(const Session& session)
{
    const auto device
        = TDW_TRY(findDeviceOnCable(session.requests, session.arguments.words.front()));
    const auto answer = session.requests.send(
        kTidewellServerPairing, { std::string(kTDWPairingServerActionUnpair), device.udid });
    if (answer)
        return reportDone(
            session, *answer, "\"" + device.udid + "\" is no longer paired with this computer.");
    const std::string attempt = "Cannot unpair \"" + device.udid + "\"";
    if (!isForWantOfPairing(answer.error()))
        return whileTrying(attempt, answer.error());
    return whileTrying(attempt,
        commandLineError({ .status = ExitStatus::NotTrusted,
            .reason = "This computer is not paired with it.",
            .advice = "There is nothing to undo.",
            .cause = answer.error() }));
}

} // namespace tdw::cli
