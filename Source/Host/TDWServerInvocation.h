#pragma once

#include "Platform/Bundle.h"
#include "Platform/Error.h"
#include "Platform/Export.h"
#include "Platform/FileHandle.h"
#include "Platform/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Running a server executable to completion. Whatever happens, the caller gets an envelope: the
/// one that the server wrote, or an error envelope made here.
///
/// Nothing is kept between calls; the functions may run on several threads at once.

extern "C" {

/// Finds the executable of a server and accepts or refuses it.
/// @param serverName a file name; a path names no server
/// @param bundle where to look
/// @param outError set when none is returned: "Server executable not found for "…"" (code 1) with
///        the cause as its underlying error, or the rule of trust that the executable breaks
/// @return the executable's path
TDW_EXPORT std::optional<std::string> TDWValidateServerExecutable(
    const std::string& serverName, const tdw::Bundle& bundle, std::optional<tdw::Error>& outError);

/// Runs a server and returns its envelope. Blocks until the server has exited; a server bounds its
/// own time.
/// @param arguments the process's arguments after the program name
/// @param standardErrorPipe may be null. Otherwise what the server writes to standard error goes
///        into it, as far as it has room while the server runs, and its writing end is closed. A
///        run that fails takes what stands in it for its message, unless somebody read it before.
/// @param outTerminationStatus may be null; receives the exit status of a completed run (the
///        signal's number for a server killed by one) and is left alone where nothing ran
/// @return the server's envelope as it is, or an error envelope
TDW_EXPORT tdw::Value TDWInvokeServer(const std::string& serverName, const tdw::Bundle& bundle,
    const std::vector<std::string>& arguments, tdw::Pipe* standardErrorPipe,
    std::int32_t* outTerminationStatus);

/// Turns what a run left behind into one envelope.
/// @param outputData the bytes that should hold the envelope; none counts as unreadable
/// @param standardErrorReader read to its end, only where the message needs it
/// @return the decoded object, unchecked; or an error envelope whose code is the exit status and
///         whose reason is the text on standard error, or a fixed message
TDW_EXPORT tdw::Value TDWParseServerBinaryResponseData(const std::string& serverName,
    const std::optional<tdw::Data>& outputData, tdw::FileHandle& standardErrorReader,
    std::int32_t terminationStatus);
}
