#pragma once

#include "Platform/Value.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tdw {

/// Turns what a server's run left behind into one envelope.
/// @param output the bytes that should hold the envelope; none counts as unreadable
/// @param standardError asked only where the message needs it
/// @return the decoded object, unchecked; or an error envelope whose code is the exit status and
///         whose reason is the text on standard error, or a fixed message
Value envelopeOfRun(const std::string& serverName, const std::optional<Data>& output,
    std::int32_t status, const std::function<Data()>& standardError);

} // namespace tdw
