#include "Devices/PairingState.h"

#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"

namespace tdw::cli {

Result<std::int64_t> pairingStateOf(const Value& payload)
{
    if (const auto state = payload.intAt(kTDWDeviceInfoPairingState))
        return *state;
    return commandLineError({ .status = ExitStatus::Failure,
        .reason = "The answer holds no pairing state: " + payload.debugDescription() });
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

std::string shortPairingStateName(std::int64_t state)
{
    switch (state) {
    case TDWDevicePairingStatePending:
        return "asks its user";
    case TDWDevicePairingStateDenied:
        return "refused";
    case TDWDevicePairingStateLocked:
        return "locked";
    default:
        return pairingStateName(state);
    }
}

} // namespace tdw::cli
