#pragma once

#include "Platform/Handle.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <plist/plist.h>

#include <optional>
#include <string>
#include <type_traits>

namespace tdw {

/// The owner of a libplist node.
using PropertyListNode = Handle<std::remove_pointer_t<plist_t>, &plist_free>;

/// The value of a node that a device library handed out. Text that is not UTF-8 gets U+FFFD where
/// it is wrong, and loses a NUL: a device's odd name must not cost the rest of what it says.
/// Errors: `kPropertyListReadCorruptError` for nodes nested too deeply, or with a date outside the
/// years 1 to 9999.
Result<Value> valueFromNode(plist_t node);

/// The text of a string node, with U+FFFD where it is not UTF-8; none for any other node, or null.
///
/// Not through `plist_get_string_val`, which ends the process over a NUL inside the text: here the
/// text ends at the NUL.
std::optional<std::string> textFromNode(plist_t node);

} // namespace tdw
