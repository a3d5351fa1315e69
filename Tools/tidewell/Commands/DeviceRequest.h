#pragma once

#include "Commands/Commands.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

struct DeviceRequest {
    std::string_view server;
    std::vector<std::string> arguments;
    /// What is tried by it, as `whileTrying` wants it.
    std::string attempt;
};

/// Sends a request and says in its error what was tried.
Result<Value> requestFor(const Session& session, const DeviceRequest& request);

/// Ends a command that changed something: tells people so, or gives programs the answer.
Result<void> reportDone(const Session& session, const Value& answer, const std::string& sentence);

} // namespace tdw::cli
