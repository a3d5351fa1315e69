#include "Server/PropertyListNode.h"

#include "Platform/Values/PropertyList.h"
#include "Platform/Values/Utf8.h"

#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

namespace tdw {

std::optional<std::string> textFromNode(plist_t node)
{
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return withInvalidUtf8Replaced(text ? std::string_view(text) : "");
}

Result<Value> valueFromNode(plist_t node)
{
    // Through the library's own writer, which is right about signs and dates where its accessors
    // are not, and needs no look-up of each element from the first one.
    Handle<char, &std::free> document;
    std::uint32_t length = 0;
    plist_to_xml(node, out(document), &length);
    std::string text = document ? std::string(document.get(), length) : std::string();
    // A NUL inside a text ends nothing here.
    std::erase(text, '\0');
    return decodePropertyList(std::as_bytes(std::span(text)));
}

} // namespace tdw
