#include "Devices/DeviceFailure.h"

#include "Devices/DeviceSelection.h"
#include "Devices/PairingState.h"
#include "Errors/Advice.h"
#include "Errors/CommandLineError.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Support/TDWErrorKinds.h"

#include <algorithm>

namespace tdw::cli {

namespace {

Error disconnected(const Error& cause)
{
    return commandLineError({ .status = ExitStatus::Disconnected,
        .reason = "The device was disconnected.",
        .advice = "Connect it again, and repeat the command.",
        .cause = cause });
}

Error silent(const Error& cause)
{
    return commandLineError({ .status = ExitStatus::TimedOut,
        .reason = "The device does not answer: usbmuxd lists it, but its own services are silent.",
        .advice = "Unlock the device, disconnect it and connect it again, and repeat the command.",
        .cause = cause });
}

Error notPaired(const std::optional<Error>& cause)
{
    return commandLineError({ .status = ExitStatus::NotTrusted,
        .reason = "This computer is not paired with the device.",
        .advice = "Connect the device with a cable and run \"tidewell pair\" with its UDID.",
        .cause = cause });
}

/// Why a device that answers refuses what it is asked; none where nothing is known.
std::optional<Error> refusalOf(const Value& info, const Error& cause)
{
    const auto state = pairingStateOf(info);
    if (!state)
        return std::nullopt;
    if (*state == TDWDevicePairingStatePaired)
        return failedApi(cause).find("start_service") != std::string::npos
                || isCompanionLookup(cause)
            ? std::optional(serviceFailure(cause))
            : std::nullopt;
    const auto warnings = warningsIn(info);
    const auto found = std::ranges::find_if(warnings, isUnpairedDevice);
    if (found == warnings.end())
        return notPaired(cause);
    return commandLineError({ .status = ExitStatus::NotTrusted,
        .reason = found->failureReason(),
        .advice = adviceFor(*found),
        .cause = cause });
}

bool isAboutDevice(const Error& error)
{
    switch (exitStatusOf(error)) {
    case ExitStatus::MultiplexerUnavailable:
    case ExitStatus::ServerNotRun:
    case ExitStatus::ServiceUnavailable:
    case ExitStatus::Usage:
        return false;
    default:
        return true;
    }
}

} // namespace

Error explainedFailure(DeviceRequests& requests, const std::string& udid, const Error& error)
{
    if (!isAboutDevice(error))
        return error;
    const auto listed = waitFor<Result<std::vector<std::string>>>(requests.loop(),
        [&](auto handler) { requests.multiplexer().listDevices(std::move(handler)); });
    if (!listed)
        return withCause(listed.error(), error);
    const auto isSame = [&](const std::string& other) {
        return comparableUdid(other) == comparableUdid(udid);
    };
    if (std::ranges::none_of(*listed, isSame))
        return disconnected(error);
    if (isServerTimeout(error))
        return silent(error);
    const bool isExplained = error.domain() == commandLineErrorDomain();
    if (isExplained || exitStatusOf(error) != ExitStatus::Failure)
        return error;
    const auto info = requests.ask(DeviceInfoQuery { .udid = udid, .mayPair = false });
    if (info)
        return refusalOf(*info, error).value_or(error);
    // A service's own code may say nothing where lockdown's says why.
    return exitStatusOf(info.error()) == ExitStatus::Failure ? error
                                                             : withCause(info.error(), error);
}

Error serviceFailure(const Error& cause)
{
    return commandLineError({ .status = ExitStatus::Failure,
        .reason = "The service of the device that this needs does not work.",
        .advice = "If the device has not been unlocked since its start, unlock it once.",
        .cause = cause });
}

Result<void> requirePairing(DeviceRequests& requests, const std::string& udid)
{
    const bool isPaired = TDW_TRY(waitFor<Result<bool>>(requests.loop(),
        [&](auto handler) { requests.multiplexer().findPairRecord(udid, std::move(handler)); }));
    return isPaired ? Result<void>() : notPaired(std::nullopt);
}

Result<Value> askDevice(
    DeviceRequests& requests, const std::string& udid, DeviceQuery query, std::string_view attempt)
{
    auto payload = requests.ask(std::move(query));
    if (!payload)
        return whileTrying(attempt, explainedFailure(requests, udid, payload.error()));
    return payload;
}

} // namespace tdw::cli
