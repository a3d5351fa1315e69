#include "Devices/PairingConversation.h"

#include "Devices/PairingState.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"

#include <algorithm>
#include <initializer_list>

namespace tdw::cli {

namespace {

// Codes of lockdown that stand for a refusal which no user can answer on the device.
constexpr std::int64_t kLostMode = -37;
constexpr std::int64_t kManaged = -38;
constexpr std::int64_t kManagedWithChallenge = -39;

// Codes of a pairing that the device accepted and this computer could not keep. Later libraries
// than Debian 12's say that there is no record in the one for a wrong configuration.
constexpr std::int64_t kWrongConfiguration = -2;
constexpr std::int64_t kMissingHostID = -20;
constexpr std::int64_t kRecordNotSaved = -30;

bool isLockdown(const Error& error, std::initializer_list<std::int64_t> codes)
{
    return error.domain() == kTDWLockdownErrorDomain
        && std::find(codes.begin(), codes.end(), error.code()) != codes.end();
}

Error refused(const std::string& reason, const std::string& advice, const std::optional<Error>& why)
{
    return commandLineError(
        { .status = ExitStatus::NotTrusted, .reason = reason, .advice = advice, .cause = why });
}

Error refusal(const std::optional<Error>& why)
{
    if (why && isLockdown(*why, { kLostMode }))
        return refused("The device is in lost mode.", "End that in Find My first.", why);
    if (why && isLockdown(*why, { kManaged, kManagedWithChallenge }))
        return refused(
            "The device is managed, and its management forbids connections to computers.",
            "Its administrator can allow them.", why);
    return refused(
        "The device refuses to be paired.", "Unlock it, reconnect it, and try again.", why);
}

} // namespace

bool PairingConversation::needsReason(const Result<Value>& answer)
{
    const auto state = answer ? pairingStateOf(*answer) : answer.error();
    return state
        && (*state == TDWDevicePairingStateLocked || *state == TDWDevicePairingStateNotPaired);
}

Result<PairingConversation::Next> PairingConversation::next(
    const Result<Value>& answer, const std::optional<Error>& reason)
{
    if (!answer)
        return afterFailure(answer.error());
    switch (TDW_TRY(pairingStateOf(*answer))) {
    case TDWDevicePairingStatePaired:
        return Next::Done;
    case TDWDevicePairingStatePending:
        return goOn(Next::TryAgain, "Tap Trust on the device and enter its passcode.");
    case TDWDevicePairingStateLocked:
        if (reason && isLockdown(*reason, { kLostMode }))
            return refusal(reason);
        return goOn(Next::TryAgain, "Unlock the device.");
    case TDWDevicePairingStateDenied:
        return refused("The device does not trust this computer: its user tapped Don't Trust.",
            "Disconnect the device and connect it again: it then asks once more. After that, run "
            "this command again.",
            reason);
    default:
        return refusal(reason);
    }
}

Result<PairingConversation::Next> PairingConversation::afterFailure(const Error& error)
{
    if (isLockdown(error, { kWrongConfiguration, kMissingHostID, kRecordNotSaved }))
        return commandLineError({ .status = ExitStatus::Failure,
            .reason = "The device trusts this computer, but usbmuxd cannot write its records.",
            .advice = "Look at the directory of its records, /var/lib/lockdown: it needs room, and "
                      "to belong to the user that usbmuxd runs as.",
            .cause = error });
    // A device that has been told to trust may leave for a moment, and come back under another
    // number.
    const bool hasLeft = isDeviceNotFound(error) || isConnectionFailure(error);
    if (hasLeft && !m_instruction.empty())
        return goOn(Next::LookAgain, "Keep the device connected; it is coming back.");
    return error;
}

PairingConversation::Next PairingConversation::goOn(Next next, std::string_view instruction)
{
    m_instruction = instruction;
    return next;
}

} // namespace tdw::cli
