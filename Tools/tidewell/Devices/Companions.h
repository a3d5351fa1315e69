#pragma once

#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Requests/DeviceRequests.h"

#include <optional>
#include <string>
#include <vector>

namespace tdw::cli {

/// The identifiers of the watches in a payload of the device info server that was asked for them;
/// none where it holds none, which is so for a device that is not paired.
std::optional<std::vector<std::string>> companionIdentifiersIn(const Value& info);

/// What the payload says about watches that could not be looked up, or none.
std::optional<Error> companionLookupFailure(const Value& info);

enum class CompanionDetail { Everything, Battery };

struct CompanionQuestion {
    CompanionDetail detail = CompanionDetail::Everything;
    std::string udid {};
    std::uint64_t connectionType = 0;
    std::vector<std::string> identifiers {};
};

/// What was found out about watches, in the order of the question: an entry for each that could be
/// read, and a warning for each other one.
struct CompanionReport {
    Array entries;
    std::vector<Error> warnings;
};

/// Asks about one watch. @param handler takes its entry
void sendCompanionRequest(DeviceRequests& requests, const CompanionQuestion& question,
    const std::string& identifier, std::function<void(Result<Value> entry)> handler);

/// Asks about watches side by side, each in a request of its own: a server ends with the first
/// watch that cannot be read, and one that does not answer uses up the time of the others.
CompanionReport requestCompanions(DeviceRequests& requests, const CompanionQuestion& question);

/// The identifiers that words mean: each is an identifier, the beginning of one, or a watch's name.
/// Errors: `ExitStatus::NoDevice`, where a word means none or several
Result<std::vector<std::string>> identifiersMeant(
    DeviceRequests& requests, const CompanionQuestion& all, const std::vector<std::string>& words);

} // namespace tdw::cli
