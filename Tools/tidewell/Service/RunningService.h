#pragma once

#include "Platform/FileHandle.h"
#include "Platform/Result.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tdw::cli {

/// The service that runs, with a connection to it, which keeps it from ending for want of clients.
struct RunningService {
    FileHandle connection;

    /// What is known of its process: nothing where another process, such as systemd, holds its
    /// socket.
    struct Process {
        pid_t identifier = 0;
        std::chrono::milliseconds uptime { 0 };
        std::uint64_t residentBytes = 0;

        /// Its USBMUXD_SOCKET_ADDRESS, empty where that is not set; none where it cannot be told.
        std::optional<std::string> multiplexer {};
    };
    std::optional<Process> process;
};

/// Looks for the service of this user without starting one; none where none runs.
/// Errors: `ExitStatus::ServiceUnavailable`
Result<std::optional<RunningService>> findRunningService();

/// Whether a service runs that was started with another USBMUXD_SOCKET_ADDRESS than this process's,
/// and would tell about the devices of another multiplexer.
bool serviceHasOtherDevices();

/// Asks it to end, and waits until it has. Errors: `ExitStatus::Failure`, after ten seconds
Result<void> stop(const RunningService& running);

} // namespace tdw::cli
