#include "Requests/RequestErrors.h"

#include "Client/ServiceMessages.h"
#include "Errors/CommandLineError.h"
#include "Platform/Messages/Connection.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/Trust.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"

#include <string>

namespace tdw::cli {

namespace {

constexpr const char* kDirectAdvice = "With --direct the request works without the service.";

/// The client's own code for want of a connection.
constexpr std::int64_t kNoConnection = -2;

bool isReachable()
{
    return connectToService(tidewellService(), StartPolicy::Fail, [] { return false; }).hasValue();
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

/// Whether an executable is not trusted. The error's reason says what to do about it.
bool isOfTrust(const Error& error)
{
    return error.domain() == kCocoaErrorDomain && error.code() == kUntrustedExecutableError;
}

/// Whether the error is one of those that an executable is not started for: the service's, or that
/// of a server which the service was to start.
bool isOfStart(const Error& error)
{
    return error.domain() == kPosixErrorDomain || isOfTrust(error);
}

} // namespace

Error serverNotRun(std::string_view server, const Error& cause)
{
    return commandLineError({ .status = ExitStatus::ServerNotRun,
        .reason = "Cannot start \"" + std::string(server) + "\"",
        .advice
        = isOfTrust(cause) ? "" : "The installation of Tidewell is incomplete; install it again.",
        .cause = cause });
}

Error serviceNotReached(const Error& cause)
{
    return commandLineError({ .status = ExitStatus::ServiceUnavailable,
        .reason = "The service of Tidewell cannot be reached",
        .advice = isOfTrust(cause) ? "" : kDirectAdvice,
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
    if (isServerNotFound(error))
        return serverNotRun(server, error);
    return error;
}

} // namespace tdw::cli
