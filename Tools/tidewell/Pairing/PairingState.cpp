#include "Pairing/PairingState.h"

#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"

namespace tdw::cli {

Result<std::int64_t> pairingStateOf(const Value& payload)
{
    const Dictionary* fields = payload.asDictionary();
    const Value* state = fields ? fields->find(kTDWDeviceInfoPairingState) : nullptr;
    if (!state || !state->asInt64())
        return commandLineError({ .status = ExitStatus::Failure,
            .reason = "The answer holds no pairing state: " + payload.debugDescription() });
    return *state->asInt64();
}

std::string pairingStateName(std::int64_t state)
{
    switch (state) {
    case TDWDevicePairingStateNotPaired:
        return "not paired";
    case TDWDevicePairingStatePending:
        return "the device is asking whether to trust this computer";
    case TDWDevicePairingStateDenied:
        return "refused on the device";
    case TDWDevicePairingStateLocked:
        return "the device is locked";
    case TDWDevicePairingStatePaired:
        return "paired";
    case TDWDevicePairingStateUnpaired:
        return "no longer paired";
    default:
        return "unknown (" + std::to_string(state) + ")";
    }
}

} // namespace tdw::cli
