#include "Devices/RequestErrors.h"

#include "Client/ServiceMessages.h"
#include "Errors/CommandLineError.h"
#include "Platform/Connection.h"
#include "Platform/ServiceStart.h"
#include "Platform/Trust.h"
#include "Support/TDWErrorHelpers.h"

#include <string>

namespace tdw::cli {

namespace {

constexpr const char* kDirectAdvice = "With --direct the request works without the service.";

/// The code, and the beginning of the reason, of a server that is not installed.
constexpr std::int64_t kServerNotFound = 1;
constexpr std::string_view kServerNotFoundReason = "Server executable not found";

/// The client's own code for want of a connection.
constexpr std::int64_t kNoConnection = -2;

bool isReachable()
{
    return connectToService(tidewellService(), IfNobodyListens::Fail, [] {
        return false;
    }).hasValue();
}

/// Whether the error is one of those that messages fail with.
bool isOfConnection(const Error& error)
{
    if (error.domain() == kTidewellErrorDomain)
        return error.code() == kNoConnection;
    return error.domain() == kCocoaErrorDomain
        && (error.code() == kConnectionInvalidError || error.code() == kReplyInvalidError
            || error.code() == kUntrustedPeerError);
}

/// Whether the error is one of those that an executable is not started for: the service's, or that
/// of a server which the service was to start.
bool isOfStart(const Error& error)
{
    return error.domain() == kPosixErrorDomain
        || (error.domain() == kCocoaErrorDomain && error.code() == kUntrustedExecutableError);
}

} // namespace

Error serverNotRun(std::string_view server, const Error& cause)
{
    return commandLineError({ .status = ExitStatus::ServerNotRun,
        .reason = "Cannot start \"" + std::string(server) + "\"",
        .advice = "Tidewell seems not to be installed completely; install it again.",
        .cause = cause });
}

Error serviceNotReached(const Error& cause)
{
    return commandLineError({ .status = ExitStatus::ServiceUnavailable,
        .reason = "The service of Tidewell cannot be reached",
        .advice = kDirectAdvice,
        .cause = cause });
}

Error requestError(std::string_view server, const Error& error)
{
    if (error.domain() == kCocoaErrorDomain && error.code() == kConnectionInterruptedError)
        return commandLineError({ .status = ExitStatus::ServiceUnavailable,
            .reason = "The service of Tidewell ended before it answered",
            .advice = std::string("Try again. ") + kDirectAdvice,
            .cause = error });
    if (isOfConnection(error))
        return serviceNotReached(error);
    if (isOfStart(error))
        return isReachable() ? serverNotRun(server, error) : serviceNotReached(error);
    if (error.domain() == kTidewellErrorDomain && error.code() == kServerNotFound
        && error.failureReason().starts_with(kServerNotFoundReason))
        return serverNotRun(server, error);
    return error;
}

} // namespace tdw::cli
