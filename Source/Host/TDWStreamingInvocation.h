#pragma once

#include "Platform/Export.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/Bundle.h"
#include "Platform/Values/Error.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

extern "C" {

/// Starts a server that writes lines for as long as it lives, such as `tdw_events`, and returns.
///
/// The run has no owner and goes on until the server ends by itself. Descendants of the server end
/// with it. Any thread may call this, any number of times.
/// @param serverName found in the bundle and accepted as `TDWValidateServerExecutable` does
/// @param arguments the process's arguments after the program name
/// @param waitQueue one of its threads is occupied until the server has ended
/// @param callbackQueue where both handlers run, the line handler never twice at once
/// @param lineHandler may be empty; called with each line of the server's standard output, without
///        its newline; lines that are not UTF-8 are left out
/// @param completionHandler may be empty; called once, after the server has ended and its last line
///        has been handed over: with none for exit status 0, otherwise with the error of the
///        envelope that the server wrote to standard error, or one made of the exit status
/// @return none, or why the server could not be started; then neither handler is ever called
TDW_EXPORT std::optional<tdw::Error> TDWInvokeStreamingServer(const std::string& serverName,
    const tdw::Bundle& bundle, const std::vector<std::string>& arguments,
    const tdw::Queue& waitQueue, const tdw::Queue& callbackQueue,
    std::function<void(const std::string&)> lineHandler,
    std::function<void(std::optional<tdw::Error>)> completionHandler);
}
