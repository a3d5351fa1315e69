#pragma once

#include "Platform/System/FileHandle.h"
#include "Platform/Values/Result.h"

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tdw::cli {

/// The service that runs, with a connection to it, which keeps it from ending for want of clients.
struct RunningService {
    FileHandle connection;

    /// What it says of itself.
    struct Status {
        pid_t process = 0;
        std::int64_t uptimeSeconds = 0;
        std::int64_t residentBytes = 0;
        std::int64_t requests = 0;
        std::int64_t subscribers = 0;
        std::string multiplexer {};
        std::string version {};
    };
    /// None where it answers, but is of a version that does not say it.
    std::optional<Status> status;
};

/// Looks for the service of this user without starting one; none where none runs.
/// Errors: `ExitStatus::ServiceUnavailable`, also where it runs and does not answer
Result<std::optional<RunningService>> findRunningService();

/// Whether the service was started with another USBMUXD_SOCKET_ADDRESS than this process, and would
/// answer with the devices of another multiplexer.
bool hasOtherDevices(const RunningService& running);

/// Asks the service of this user to end, and waits until it has; one that does not answer is
/// killed.
/// @return whether there was one. Errors: `ExitStatus::Failure`, `ExitStatus::ServiceUnavailable`
Result<bool> stopService();

} // namespace tdw::cli
