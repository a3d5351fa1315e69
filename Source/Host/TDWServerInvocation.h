#pragma once

#include "Platform/Export.h"
#include "Platform/System/Bundle.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Value.h"

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
///        into it, and its writing end is closed at the end. The server never waits for the reader:
///        what does not fit is passed on afterwards, until the reader has taken it or is closed (up
///        to 64 MiB; the rest is dropped). The reading end may be moved out and read by another
///        thread meanwhile; where it is still there, a run that fails takes what nothing has read
///        for its message.
/// @param outTerminationStatus may be null; receives the exit status of a completed run (the
///        signal's number for a server killed by one; -1 where the application ignores SIGCHLD and
///        the status is lost) and is left alone where nothing ran
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
