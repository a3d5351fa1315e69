#pragma once

#include "Platform/Values/Error.h"

#include <string_view>

namespace tdw::cli {

/// The error of a server that cannot be started: `ExitStatus::ServerNotRun`.
Error serverNotRun(std::string_view server, const Error& cause);

/// The error of a service that cannot be reached: `ExitStatus::ServiceUnavailable`.
Error serviceNotReached(const Error& cause);

/// Says what a failed request through the service was about: the service, which is then
/// `ExitStatus::ServiceUnavailable`; a server that it cannot start; or else the error as it is.
Error requestError(std::string_view server, const Error& error);

} // namespace tdw::cli
