#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace tdw {

/// Codes in `kCocoaErrorDomain` of bytes that are no property list, and of values that cannot
/// become one.
inline constexpr std::int64_t kPropertyListReadCorruptError = 3840;
inline constexpr std::int64_t kPropertyListWriteInvalidError = 3851;

/// The deepest nesting that is read or written; real device data stays below ten.
inline constexpr std::size_t kPropertyListMaximumDepth = 200;

/// The most objects that one property list may come to, shared ones counted at each use.
inline constexpr std::size_t kPropertyListMaximumObjects = 4'000'000;

/// Writes an XML property list, version 1.0, in UTF-8.
///
/// Dates lose fractions of a second, and control characters that XML cannot hold become U+FFFD.
/// Errors (`kPropertyListWriteInvalidError`): an `Error` value, text that is not UTF-8 or holds a
/// NUL, a date outside the years 1 to 9999, nesting over `kPropertyListMaximumDepth`; each names
/// the key path of the offending value.
TDW_EXPORT Result<Data> encodeXmlPropertyList(const Value& value);

/// Writes a binary property list ("bplist00"). Errors as for XML.
TDW_EXPORT Result<Data> encodeBinaryPropertyList(const Value& value);

/// Reads an XML or a binary property list, recognised by its content.
///
/// Safe on any bytes whatever: it takes time linear in them, and memory of at most eight times
/// their size and 16 MiB. Text that is not UTF-8 gets U+FFFD where it is wrong. Errors:
/// `kPropertyListReadCorruptError`, for a document that is unfinished, nested too deeply, or would
/// come to too many objects, and for a date outside the years 1 to 9999.
TDW_EXPORT Result<Value> decodePropertyList(std::span<const std::byte> bytes);

} // namespace tdw
