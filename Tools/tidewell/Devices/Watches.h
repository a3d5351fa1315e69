#pragma once

#include "Devices/Requests.h"
#include "Platform/Error.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// The identifiers of the watches in a payload of the device info server that was asked for them;
/// none where it says nothing of watches, which is so for a device that is not paired.
std::optional<std::vector<std::string>> watchIdentifiersIn(const Value& info);

/// What the payload says about watches that could not be looked up, or none.
std::optional<Error> watchLookupFailure(const Value& info);

struct WatchQuestion {
    /// `kTidewellServerCompanion` or `kTidewellServerCompanionBattery`
    std::string_view server;
    std::string udid;
    std::string connection;
    std::vector<std::string> identifiers;
};

/// What was found out about watches: an entry for each that could be read, and a warning for each
/// other one.
struct WatchReport {
    Array entries;
    std::vector<Error> warnings;
};

/// Asks about watches, each in a request of its own: a server ends with the first watch that cannot
/// be read, and one that does not answer uses up the time of the others.
WatchReport requestWatches(const Requests& requests, const WatchQuestion& question);

} // namespace tdw::cli
