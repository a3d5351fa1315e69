#include "Pairing/PairingConversation.h"

#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Pairing/PairingState.h"

namespace tdw::cli {

namespace {

Error refused(const std::string& reason, const std::string& advice)
{
    return commandLineError(
        { .status = ExitStatus::NotTrusted, .reason = reason, .advice = advice });
}

} // namespace

Result<PairingConversation::Next> PairingConversation::next(const Result<Value>& answer)
{
    if (!answer) {
        // A device that has just been told to trust leaves, and comes back.
        const bool isGone = exitStatusOf(answer.error()) == ExitStatus::NoDevice;
        if (isGone && !m_instruction.empty())
            return waitFor("Keep the device connected; it is coming back.");
        return answer.error();
    }
    switch (TDW_TRY(pairingStateOf(*answer))) {
    case TDWDevicePairingStatePaired:
        return Next::Done;
    case TDWDevicePairingStatePending:
        return waitFor("Tap Trust on the device and enter its passcode.");
    case TDWDevicePairingStateLocked:
        return waitFor("Unlock the device.");
    case TDWDevicePairingStateDenied:
        return refused("The device does not trust this computer: its user said so.",
            "To be asked again, disconnect the device, connect it, and run this command once more.");
    default:
        return refused("The device does not let itself be paired.",
            "A device that is managed, or in lost mode, refuses this.");
    }
}

PairingConversation::Next PairingConversation::waitFor(std::string_view instruction)
{
    m_instruction = instruction;
    return Next::TryAgain;
}

} // namespace tdw::cli
