#pragma once

#include "Interfaces/TDWServer.h"
#include "Interfaces/TDWServerState.h"
#include "Platform/Export.h"
#include "Platform/Queues/Queue.h"

#include <libimobiledevice/libimobiledevice.h>

/// What every server process does around its job.
///
///     int TDWSomethingServerMain(int argc, char** argv)
///     {
///         TDWServerInitialize();
///         return tdw::answerRequest([&](tdw::DeviceSession& session) { … });
///     }
///
/// `answerRequest` (ServerMain.h) writes the one envelope and stops the clock. A server that does
/// not get to the end is ended by its clock, from another thread, with the envelope of "Server
/// timeout.": exactly one envelope leaves the process either way.

extern "C" {

/// How long a server may take, in seconds; negative: no clock. Initially 10.
TDW_EXPORT extern double gTDWServerTimeoutInterval;

/// The clock's current work item; null until the clock is first started.
TDW_EXPORT extern tdw::WorkItem gTDWServerTimeoutBlock;

/// The name this process runs under: the last path component of its first argument.
/// @return a NUL-terminated string that lives as long as the process, or null where the process
///         was started without a name
TDW_EXPORT const char* TDWServerName();

/// Sets the interval for the next start of the clock.
/// @param seconds negative for no clock
TDW_EXPORT void TDWServerSetTimeoutInterval(double seconds);

/// Arms the clock; part of `TDWServerInitialize`. A second start in one process is reported on
/// standard error and replaces the first.
TDW_EXPORT void _TDWServerStartTimeoutClock();

/// Disarms the clock; does nothing where none runs.
TDW_EXPORT void TDWServerStopTimeoutClock();

/// The first thing every server does: clock, debug levels of the device libraries, and the flag
/// that the response writers look at. From then on the process writes no core, survives broken
/// pipes and answers with an error where an exception ends it. Main thread only.
TDW_EXPORT void TDWServerInitialize();

/// The lookup options of the connection type in the third argument: decimal text; 1 is USB only, 2
/// is network only, anything else, or nothing, is both.
/// @param arguments at least `argumentCount` NUL-terminated strings
TDW_EXPORT enum idevice_options TDWParseDeviceOptionsFromArguments(
    int argumentCount, char** arguments);
}
