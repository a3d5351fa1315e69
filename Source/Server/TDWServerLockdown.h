#pragma once

#include "Interfaces/TDWDeviceInfo.h"
#include "Platform/Error.h"
#include "Platform/Export.h"
#include "Platform/Value.h"

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <plist/plist.h>

#include <cstdint>
#include <optional>
#include <string>

/// Reading what a device says into property-list values.
///
/// An operation that takes a pointer to an error writes an error envelope itself where that pointer
/// is null: then it is the request's last word. A caller that goes on to another envelope passes a
/// place for the error, and nothing is written.

extern "C" {

/// The value of a node of a device library.
/// @param node stays the caller's; null counts as a node that cannot be rendered
/// @param outObject set on success
/// @return 0, or the code of the step that failed
TDW_EXPORT int TDWServerGetFoundationObjectFromRawPlist(plist_t node,
    std::optional<tdw::Value>& outObject, std::optional<tdw::Error>* outError = nullptr);

/// The contents of a whole lockdown domain. Contents that are no dictionary are reported on
/// standard error and returned all the same.
/// @param outError set when none is returned; nothing is written to standard output
TDW_EXPORT std::optional<tdw::Value> TDWReadLockdownDomainDictionary(
    lockdownd_client_t client, const char* domain, std::optional<tdw::Error>& outError);

/// One string. A value that is no string succeeds and gives none.
/// @param domain null for the device's global values
/// @param outString left as it was where there is no string to give
/// @return the lockdown error code
TDW_EXPORT int TDWReadLockdownString(lockdownd_client_t client, const char* domain, const char* key,
    std::optional<std::string>& outString);

/// One boolean: also "1", "true" and "YES", and numbers over 0. No value is false; a value of any
/// other type is reported on standard error and is false.
/// @param domain null for the device's global values
/// @param outBool left as it was on failure
/// @return the lockdown error code
TDW_EXPORT int TDWReadLockdownBool(lockdownd_client_t client, const char* domain, const char* key,
    bool& outBool, std::optional<tdw::Error>* outError = nullptr);

/// The identifiers of the watches paired with a device, in the device's order.
/// @param outIdentifiers set on success; an empty array where no watch is paired
/// @return 0, or the code of the step that failed
TDW_EXPORT int _TDWFetchCompanionDeviceIdentifiers(idevice_t device,
    std::optional<tdw::Value>& outIdentifiers, std::optional<tdw::Error>* outError = nullptr);

/// The pairing state that a failed handshake's code stands for: pending, denied, locked or not
/// paired.
TDW_EXPORT TDWDevicePairingState TDWDevicePairingStateFromLockdownErrorCode(int code);
}
