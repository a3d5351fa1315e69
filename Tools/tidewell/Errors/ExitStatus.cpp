#include "Errors/ExitStatus.h"

#include "Errors/CommandLineError.h"
#include "Platform/Value.h"
#include "Support/TDWErrorHelpers.h"

#include <optional>

namespace tdw::cli {

namespace {

constexpr ExitStatusMeaning kMeanings[] = {
    { ExitStatus::Success, "What was asked for was done; a list of no devices is a list too." },
    { ExitStatus::Failure, "Any failure that is not listed below." },
    { ExitStatus::NoDevice, "No device matches what was given, or more than one does." },
    { ExitStatus::NotTrusted, "The device does not trust this computer, or is locked." },
    { ExitStatus::TimedOut, "The device, or its user, did not answer in time." },
    { ExitStatus::MultiplexerUnavailable, "The multiplexer (usbmuxd) cannot be asked." },
    { ExitStatus::ServerNotRun, "A part of Tidewell could not be started." },
    { ExitStatus::OutputNotWritten, "Standard output could not be written." },
    { ExitStatus::ServiceUnavailable, "The service of Tidewell cannot be reached, or none runs." },
    { ExitStatus::Usage, "The command line is wrong." },
};

// Codes of the device libraries; an application has no header for them.
constexpr std::int64_t kDeviceNotAvailable = -3;
constexpr std::int64_t kDeviceTimeout = -7;
constexpr std::int64_t kLockdownReceiveTimeout = -7;
constexpr std::int64_t kLockdownInvalidHostID = -21;
constexpr std::int64_t kCompanionTimeout = -6;
constexpr std::int64_t kCompanionTimeoutReply = -102;

/// The server tool's statuses for "I do not know what I am to do".
constexpr std::int64_t kServerWithoutName = 111;
constexpr std::int64_t kServerNameUnknown = 123;

/// A server's own clock; it shares its code with other failures, so the message decides.
constexpr std::string_view kServerTimeoutMessage = "Server timeout.";

std::optional<ExitStatus> ownStatusOf(const Error& error)
{
    const std::string_view domain = error.domain();
    const std::int64_t code = error.code();
    if (domain == commandLineErrorDomain())
        return static_cast<ExitStatus>(code);
    if (domain == kTDWDeviceErrorDomain) {
        if (code == kDeviceNotAvailable)
            return ExitStatus::NoDevice;
        if (code == kDeviceTimeout)
            return ExitStatus::TimedOut;
    } else if (domain == kTDWLockdownErrorDomain) {
        if (code == kLockdownInvalidHostID
            || TDWLockdownErrorIsUnpairedDeviceError(static_cast<std::int32_t>(code)))
            return ExitStatus::NotTrusted;
        if (code == kLockdownReceiveTimeout)
            return ExitStatus::TimedOut;
    } else if (domain == kTDWCompanionProxyErrorDomain) {
        if (code == kCompanionTimeout || code == kCompanionTimeoutReply)
            return ExitStatus::TimedOut;
    } else if (domain == kTidewellErrorDomain) {
        if (code == kServerWithoutName || code == kServerNameUnknown)
            return ExitStatus::ServerNotRun;
        if (error.failureReason() == kServerTimeoutMessage)
            return ExitStatus::TimedOut;
    }
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
