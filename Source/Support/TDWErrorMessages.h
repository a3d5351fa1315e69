#pragma once

#include "Platform/Export.h"

#include <cstdint>

namespace tdw {
class Dictionary;
} // namespace tdw

/// What each code of the device libraries means, in words for users: one table per domain.
///
/// Each returns a user info with the failure reason alone; a code that a table does not list gets
/// the table's default.

extern "C" {

TDW_EXPORT tdw::Dictionary _TDWMapDeviceError(std::int32_t code);
TDW_EXPORT tdw::Dictionary _TDWMapLockdownError(std::int32_t code);
TDW_EXPORT tdw::Dictionary _TDWMapCompanionProxyError(std::int32_t code);
TDW_EXPORT tdw::Dictionary _TDWMapSBServicesError(std::int32_t code);
}
