#pragma once

#include "Interfaces/TDWDeviceInfo.h"
#include "Platform/Export.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <libimobiledevice/companion_proxy.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <plist/plist.h>

#include <optional>
#include <string>

/// Reading what a device says into property-list values.
///
/// Where an exported operation says that it answers with an error, it writes an error envelope to
/// standard output. The servers use the operations in `tdw`, which write nothing.

extern "C" {

/// The value of a node of a device library. A node that cannot be rendered is answered with an
/// error.
/// @param node stays the caller's; null counts as a node that cannot be rendered
/// @param outObject set on success, none where the rendered node cannot be read; not touched where
///        it cannot be rendered
/// @return 0, or the code of the step that failed
TDW_EXPORT int TDWServerGetFoundationObjectFromRawPlist(
    plist_t node, std::optional<tdw::Value>& outObject);

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
/// other type is reported on standard error and is false. A failed read is answered with an error.
/// @param domain null for the device's global values
/// @param outBool left as it was on failure
/// @return the lockdown error code
TDW_EXPORT int TDWReadLockdownBool(
    lockdownd_client_t client, const char* domain, const char* key, bool& outBool);

/// The identifiers of the watches paired with a device, in the device's order. Every failure is
/// answered with an error.
/// @param outIdentifiers an array on success, empty where no watch is paired; not touched on
/// failure
/// @return 0, or the code of the step that failed
TDW_EXPORT int _TDWFetchCompanionDeviceIdentifiers(
    idevice_t device, std::optional<tdw::Value>& outIdentifiers);

/// The pairing state that a failed handshake's code stands for: pending, denied, locked or not
/// paired.
TDW_EXPORT TDWDevicePairingState TDWDevicePairingStateFromLockdownErrorCode(int code);
}

namespace tdw {

/// The value of a node that the device sent.
/// Errors: "TDWServerGetFoundationObjectFromRawPlist" with the code of the step that failed.
TDW_EXPORT Result<Value> readNode(plist_t node);

/// As `TDWReadLockdownDomainDictionary`.
TDW_EXPORT Result<Value> readLockdownDomain(lockdownd_client_t client, const char* domain);

/// The array of watches that a phone's companion proxy knows, by one command on `proxy`.
/// Errors: "companion_proxy_get_device_registry", or those of `readNode`.
TDW_EXPORT Result<Value> readCompanionRegistry(companion_proxy_client_t proxy);

} // namespace tdw
