#pragma once

#include "Platform/Result.h"

#include <cstddef>
#include <span>
#include <string_view>

namespace tdw {

/// Checks, before the decoder builds anything, that a property list can be decoded safely.
///
/// The decoder recurses into nested containers, follows shared references once per use and takes
/// an unfinished document for a whole one. Bytes come from devices and from processes that may die
/// half way, so nesting, the number of objects and completeness are settled here, without
/// recursion and in time linear in the bytes.
///
/// Errors: `kPropertyListReadCorruptError`.
Result<void> checkXmlPropertyListShape(std::string_view text);

/// The same for a binary property list ("bplist00").
Result<void> checkBinaryPropertyListShape(std::span<const std::byte> bytes);

/// The error of bytes that are no property list.
/// @param what what is wrong with them, to stand after a colon
Error corruptPropertyList(std::string_view what);

} // namespace tdw
