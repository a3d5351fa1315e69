#pragma once

#include "Platform/Export.h"

#include <map>
#include <set>
#include <string>
#include <string_view>

/// From lockdown domain to the keys that may be written in it.
using TDWDeviceConfigKeys = std::map<std::string, std::set<std::string>, std::less<>>;

extern "C" {

/// What the configuration server may write, and nothing else.
TDW_EXPORT const TDWDeviceConfigKeys& TDWDeviceConfigAllowList();

/// Whether a key of a domain may be written.
/// @param domain,key NUL-terminated, or null
/// @return 0, or 1 after an error envelope that says what is not allowed
TDW_EXPORT int TDWCheckDeviceConfigAllowListed(const char* domain, const char* key);

/// The configuration server: writes one allow-listed value and answers with an empty payload.
///
/// Arguments: UDID, lockdown domain, key, value ("0" or "1" for a boolean key). Always over USB.
/// @return the exit status: 0, the library's code, or 1 for arguments that are refused
TDW_EXPORT int TDWConfigServerMain(int argumentCount, char** arguments);
}
