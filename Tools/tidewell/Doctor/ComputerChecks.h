#pragma once

#include "Doctor/Finding.h"
#include "Multiplexer/MultiplexerClient.h"
#include "Platform/Queues/EventLoop.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace tdw::cli {

// Each check has a bound of its own, and none waits for a device.

/// @param now the time of day
Finding checkClock(std::chrono::system_clock::time_point now);

/// Which device libraries the servers load, and what is known of that release.
Finding checkLibraries();

/// Whether this process and the service may start the servers.
Finding checkServers();

/// Whether the multiplexer's program is there, and what is known of its release.
/// @param isNeeded false where the environment names another multiplexer
Finding checkDaemon(bool isNeeded);

/// The multiplexer as it answers.
struct MultiplexerCheck {
    Finding finding;
    /// The UDIDs that it lists, each once; empty where it does not answer.
    std::vector<std::string> devices;
    bool isWorking = false;
};
MultiplexerCheck checkMultiplexer(EventLoop& loop, MultiplexerClient& multiplexer);

/// What is on the USB bus against what the multiplexer lists.
Finding checkBus(const std::filesystem::path& sysfs, const MultiplexerCheck& multiplexer,
    bool isMultiplexerFromEnvironment);

/// The service: there, answering, of this version, and at the same multiplexer. Where none runs,
/// one is started, as a request would.
struct ServiceCheck {
    Findings findings;
    /// Whether requests can go through it.
    bool isUsable = false;
};
ServiceCheck checkService();

} // namespace tdw::cli
