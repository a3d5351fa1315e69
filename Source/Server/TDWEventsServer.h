#pragma once

#include "Platform/Export.h"
#include "Platform/Queues/Queue.h"

#include <libimobiledevice/libimobiledevice.h>

#include <cstdint>

extern "C" {

/// The events server: writes "type,connection,UDID" and a newline to standard output as devices
/// come (type 1), go (2) and are paired (3), over USB (connection 1) or the network (2), for as
/// long as it lives. Devices that are there already come first.
///
/// Where the multiplexer does not report a pairing, the server finds the pair record: it looks for
/// the records of attached devices that are not paired, after pauses of 1 to 10 seconds.
///
/// SIGINT, SIGTERM and SIGABRT end it with status 0 within a moment, and so does the end of
/// the reader of its standard output. A failed subscription ends it with its error envelope on both
/// standard error, where a streaming host finds it, and standard output.
[[noreturn]] TDW_EXPORT int TDWEventsServerMain();

/// What the device library calls for every event: writes one line.
TDW_EXPORT void _TDWEventsServerCallback(const idevice_event_t* event, void* userData);

/// The serial queue "Signal", created on first use and kept for the life of the process.
TDW_EXPORT const tdw::Queue& getSignalQueue();

/// From now on the signal ends the events server in order.
/// @param signalNumber SIGINT, SIGTERM or SIGABRT; anything else is a mistake, and ends the process
///        with status 1
/// @param signalName its name for the message, NUL-terminated; kept
TDW_EXPORT void registerTerminationSignalHandler(std::int32_t signalNumber, const char* signalName);
}
