#pragma once

#include "Platform/Export.h"

extern "C" {

/// The pairing server: makes a device trust this host, or forget it, and writes the pairing state.
/// A device that is locked, shows its trust dialog or was told "no" is an answer, not a failure.
///
/// Arguments: the action ("pair" or "unpair"), UDID. Always over USB, within 20 seconds.
/// @return the exit status: 0 when the device did as asked, else the library's code, also with a
///         pairing state as the answer; 1 for arguments that name no action or no device
TDW_EXPORT int TDWPairingServerMain(int argumentCount, char** arguments);

/// Pairs; see there.
/// @param udid NUL-terminated
TDW_EXPORT int TDWPairingServerPair(const char* udid);

/// Unpairs; see there. Every refusal of the device is an error.
/// @param udid NUL-terminated
TDW_EXPORT int TDWPairingServerUnpair(const char* udid);
}
