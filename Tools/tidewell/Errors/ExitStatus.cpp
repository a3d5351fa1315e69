#include "Errors/ExitStatus.h"

#include "Errors/CommandLineError.h"
#include "Support/TDWErrorKinds.h"

#include <optional>

namespace tdw::cli {

namespace {

constexpr ExitStatusMeaning kMeanings[] = {
    { ExitStatus::Success, "The request was carried out; an empty list is a list too." },
    { ExitStatus::Failure, "Any failure that is not listed below." },
    { ExitStatus::NoDevice, "No device matches what was given, or more than one does." },
    { ExitStatus::NotTrusted, "The device does not trust this computer, or is locked." },
    { ExitStatus::TimedOut, "The device, or its user, did not answer in time." },
    { ExitStatus::MultiplexerUnavailable, "The multiplexer (usbmuxd) cannot be asked." },
    { ExitStatus::ServerNotRun, "A part of Tidewell could not be started." },
    { ExitStatus::OutputNotWritten, "Standard output could not be written." },
    { ExitStatus::ServiceUnavailable, "The service of Tidewell cannot be reached, or none runs." },
    { ExitStatus::Disconnected, "The device was disconnected while it was being asked." },
    { ExitStatus::Usage, "The command line is wrong." },
};

std::optional<ExitStatus> ownStatusOf(const Error& error)
{
    if (error.domain() == commandLineErrorDomain())
        return static_cast<ExitStatus>(error.code());
    if (isDeviceNotFound(error))
        return ExitStatus::NoDevice;
    if (isServerTimeout(error) || isDeviceTimeout(error))
        return ExitStatus::TimedOut;
    if (isUnpairedDevice(error) || isForgottenPairing(error))
        return ExitStatus::NotTrusted;
    if (isServerToolRefusal(error))
        return ExitStatus::ServerNotRun;
    return std::nullopt;
}

} // namespace

std::span<const ExitStatusMeaning> exitStatusMeanings()
{
    return kMeanings;
}

ExitStatus exitStatusOf(const Error& error)
{
    for (const Error& link : causeChain(error)) {
        if (const auto status = ownStatusOf(link))
            return *status;
    }
    return ExitStatus::Failure;
}

} // namespace tdw::cli
