#pragma once

#include "Platform/System/Process.h"
#include "Platform/Values/Data.h"
#include "Platform/Values/Error.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tdw {

class Value;

/// Turns what a server's run left behind into one envelope.
/// @param output the bytes that should hold the envelope; none counts as unreadable
/// @param standardError asked only where the message needs it
/// @return the decoded object, unchecked; or an error envelope whose code is the exit status and
///         whose reason is the text on standard error, or a fixed message. The error of a server
///         that was killed has an underlying one that names the signal.
Value envelopeOfRun(const std::string& serverName, const std::optional<Data>& output,
    const Termination& termination, const std::function<Data()>& standardError);

/// The last XML property list in a text that holds warnings and the like as well.
std::optional<Value> envelopeAmong(std::string_view text);

/// The error of an envelope; none for one with an answer.
std::optional<Error> errorInEnvelope(const Value& envelope);

} // namespace tdw
