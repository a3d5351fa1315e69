#pragma once

#include "Platform/Handle.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <plist/plist.h>

#include <type_traits>

namespace tdw {

/// The owner of a libplist node.
using PropertyListNode = Handle<std::remove_pointer_t<plist_t>, &plist_free>;

/// The value of a node that a device library handed out. Text that is not UTF-8 gets U+FFFD where
/// it is wrong: a device's odd name must not cost the rest of what it says.
/// Errors: `kPropertyListReadCorruptError` for nodes nested too deeply.
Result<Value> valueFromNode(plist_t node);

/// A new node of `value`. Errors: `kPropertyListWriteInvalidError`, naming the key path.
Result<PropertyListNode> nodeFromValue(const Value& value);

} // namespace tdw
