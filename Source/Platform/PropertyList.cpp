#include "Platform/PropertyList.h"

#include "Platform/PropertyListNode.h"
#include "Platform/PropertyListShape.h"
#include "Platform/Text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace tdw {

namespace {

/// Text, keys and buffers that libplist allocated.
using LibraryText = Handle<char, &std::free>;

enum class TextFor { Xml, Binary };

/// libplist counts dates from the start of 2001.
constexpr std::chrono::sys_days kDateReference { std::chrono::year { 2001 } / 1 / 1 };

Error unwritable(const std::string& path, std::string_view what)
{
    return Error(kCocoaErrorDomain, kPropertyListWriteInvalidError,
        "Cannot write the value" + (path.empty() ? "" : " at \"" + path + "\"")
            + " as a property list: " + std::string(what));
}

/// The node's document as libplist writes it; empty where it cannot.
std::string xmlOf(plist_t node)
{
    LibraryText text;
    std::uint32_t length = 0;
    plist_to_xml(node, out(text), &length);
    return text ? std::string(text.get(), length) : std::string();
}

// libplist 2.2 knows the sign of an integer and shows it in XML alone: its accessors and its
// constructors take 64 bits for an unsigned number or for a signed one as they please. Integers
// whose top bit is set, and they only, therefore take the road through a scrap of XML, which every
// release reads and writes with the right sign.

Integer integerFromNode(plist_t node)
{
    std::uint64_t bits = 0;
    plist_get_uint_val(node, &bits);
    const bool hasTopBit = bits > INT64_MAX;
    if (hasTopBit && xmlOf(node).find("<integer>-") != std::string::npos)
        return Integer(static_cast<std::int64_t>(bits));
    return Integer(bits);
}

plist_t nodeFromInteger(const Integer& integer)
{
    if (integer.bits() <= INT64_MAX)
        return plist_new_uint(integer.bits());
    const std::string number = integer.isNegative()
        ? std::to_string(static_cast<std::int64_t>(integer.bits()))
        : std::to_string(integer.bits());
    const std::string document = "<plist version=\"1.0\"><integer>" + number + "</integer></plist>";
    plist_t node = nullptr;
    plist_from_xml(document.data(), static_cast<std::uint32_t>(document.size()), &node);
    return node;
}

// The library's 2.7 release calls both functions deprecated, but those that it offers instead know
// no microseconds.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
Date dateFromNode(plist_t node)
{
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    return kDateReference + std::chrono::seconds(seconds) + std::chrono::microseconds(microseconds);
}

PropertyListNode dateNodeOf(std::int32_t secondsSinceReference, std::int32_t microseconds)
{
    return PropertyListNode(plist_new_date(secondsSinceReference, microseconds));
}
#pragma GCC diagnostic pop

Result<Value> valueFromNode(plist_t node, std::size_t depth);

Result<Value> arrayFromNode(plist_t node, std::size_t depth)
{
    Array array;
    const std::uint32_t count = plist_array_get_size(node);
    array.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i)
        array.push_back(TDW_TRY(valueFromNode(plist_array_get_item(node, i), depth + 1)));
    return Value(std::move(array));
}

Result<Value> dictionaryFromNode(plist_t node, std::size_t depth)
{
    Dictionary dictionary;
    dictionary.reserve(plist_dict_get_size(node));
    Handle<void, &std::free> iterator;
    plist_dict_new_iter(node, out(iterator));
    while (iterator) {
        LibraryText key;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator.get(), out(key), &item);
        if (!item)
            break;
        dictionary.set(withInvalidUtf8Replaced(key ? std::string_view(key.get()) : ""),
            TDW_TRY(valueFromNode(item, depth + 1)));
    }
    return Value(std::move(dictionary));
}

Value dataFromNode(plist_t node)
{
    LibraryText bytes;
    std::uint64_t length = 0;
    plist_get_data_val(node, out(bytes), &length);
    if (!bytes)
        return Data {};
    const auto* first = reinterpret_cast<const std::byte*>(bytes.get());
    return Data(first, first + length);
}

Result<Value> valueFromNode(plist_t node, std::size_t depth)
{
    if (depth > kPropertyListMaximumDepth)
        return corruptPropertyList("it is nested too deeply");
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t boolean = 0;
        plist_get_bool_val(node, &boolean);
        return Value(boolean != 0);
    }
    case PLIST_UINT:
        return Value(integerFromNode(node));
    case PLIST_REAL: {
        double real = 0;
        plist_get_real_val(node, &real);
        return Value(real);
    }
    case PLIST_STRING:
        return Value(textFromNode(node).value_or(std::string()));
    case PLIST_DATA:
        return dataFromNode(node);
    case PLIST_DATE:
        return Value(dateFromNode(node));
    case PLIST_ARRAY:
        return arrayFromNode(node, depth);
    case PLIST_DICT:
        return dictionaryFromNode(node, depth);
    case PLIST_UID: {
        // XML has no element for archive references; this is how they are written there.
        std::uint64_t reference = 0;
        plist_get_uid_val(node, &reference);
        return Value(Dictionary { { "CF$UID", reference } });
    }
    default:
        return corruptPropertyList("it holds an object of no known type");
    }
}

/// XML cannot hold most control characters, not even as references.
bool isXmlCharacter(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 0x20 || byte == '\t' || byte == '\n' || byte == '\r';
}

std::string withXmlControlCharactersReplaced(const std::string& text)
{
    if (std::all_of(text.begin(), text.end(), isXmlCharacter))
        return text;
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        if (isXmlCharacter(character))
            result += character;
        else
            result += "\xEF\xBF\xBD";
    }
    return result;
}

/// Builds libplist nodes, keeping the key path for the message of an error.
class NodeBuilder {
public:
    explicit NodeBuilder(TextFor textFor)
        : m_textFor(textFor)
    {
    }

    Result<PropertyListNode> node(const Value& value, std::size_t depth)
    {
        if (depth > kPropertyListMaximumDepth)
            return unwritable({}, "it is nested too deeply");
        switch (value.type()) {
        case Value::Type::Boolean:
            return PropertyListNode(plist_new_bool(*value.asBoolean() ? 1 : 0));
        case Value::Type::Integer:
            return PropertyListNode(nodeFromInteger(*value.asInteger()));
        case Value::Type::Real:
            return PropertyListNode(plist_new_real(*value.asReal()));
        case Value::Type::String:
            return PropertyListNode(plist_new_string(TDW_TRY(text(*value.asString())).c_str()));
        case Value::Type::Data: {
            const Data& data = *value.asData();
            return PropertyListNode(
                plist_new_data(reinterpret_cast<const char*>(data.data()), data.size()));
        }
        case Value::Type::Date:
            return dateNode(*value.asDate());
        case Value::Type::Array:
            return arrayNode(*value.asArray(), depth);
        case Value::Type::Dictionary:
            return dictionaryNode(*value.asDictionary(), depth);
        case Value::Type::Error:
            return unwritable(m_path, "it is an error object");
        }
        return unwritable(m_path, "it is of no known type");
    }

private:
    Result<std::string> text(const std::string& text) const
    {
        if (!isValidUtf8(text))
            return unwritable(m_path, "its text is not UTF-8");
        if (text.find('\0') != std::string::npos)
            return unwritable(m_path, "its text holds a NUL");
        return m_textFor == TextFor::Xml ? withXmlControlCharactersReplaced(text) : text;
    }

    Result<PropertyListNode> dateNode(Date date) const
    {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
        const auto sinceReference = (seconds - kDateReference).count();
        if (sinceReference < INT32_MIN || sinceReference > INT32_MAX)
            return unwritable(m_path, "its date is out of range");
        const auto microseconds
            = m_textFor == TextFor::Xml ? 0 : static_cast<std::int32_t>((date - seconds).count());
        return dateNodeOf(static_cast<std::int32_t>(sinceReference), microseconds);
    }

    Result<PropertyListNode> arrayNode(const Array& array, std::size_t depth)
    {
        PropertyListNode result(plist_new_array());
        for (std::size_t i = 0; i < array.size(); ++i) {
            const PathStep step(m_path, std::to_string(i));
            plist_array_append_item(result.get(), TDW_TRY(node(array[i], depth + 1)).release());
        }
        return result;
    }

    Result<PropertyListNode> dictionaryNode(const Dictionary& dictionary, std::size_t depth)
    {
        PropertyListNode result(plist_new_dict());
        for (const Dictionary::Entry& entry : dictionary) {
            const PathStep step(m_path, entry.key);
            const std::string key = TDW_TRY(text(entry.key));
            plist_dict_set_item(
                result.get(), key.c_str(), TDW_TRY(node(entry.value, depth + 1)).release());
        }
        return result;
    }

    /// Appends one step to the path for as long as it lives.
    class PathStep {
    public:
        PathStep(std::string& path, std::string_view step)
            : m_path(path)
            , m_length(path.size())
        {
            if (!m_path.empty())
                m_path += '.';
            m_path += withControlCharactersEscaped(step);
        }
        PathStep(const PathStep&) = delete;
        PathStep& operator=(const PathStep&) = delete;
        ~PathStep() { m_path.resize(m_length); }

    private:
        std::string& m_path;
        std::size_t m_length;
    };

    TextFor m_textFor;
    std::string m_path;
};

/// Runs one of libplist's writers over the nodes of `value`.
template <typename Write>
Result<Data> encode(const Value& value, TextFor textFor, Write write)
{
    const PropertyListNode node = TDW_TRY(NodeBuilder(textFor).node(value, 0));
    LibraryText bytes;
    std::uint32_t length = 0;
    write(node.get(), out(bytes), &length);
    if (!bytes)
        return unwritable({}, "the encoder gave no reason");
    const auto* first = reinterpret_cast<const std::byte*>(bytes.get());
    return Data(first, first + length);
}

} // namespace

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
    return valueFromNode(node, 0);
}

Result<PropertyListNode> nodeFromValue(const Value& value)
{
    return NodeBuilder(TextFor::Binary).node(value, 0);
}

Result<Data> encodeXmlPropertyList(const Value& value)
{
    return encode(value, TextFor::Xml, [](plist_t node, char** bytes, std::uint32_t* length) {
        plist_to_xml(node, bytes, length);
    });
}

Result<Data> encodeBinaryPropertyList(const Value& value)
{
    return encode(value, TextFor::Binary, [](plist_t node, char** bytes, std::uint32_t* length) {
        plist_to_bin(node, bytes, length);
    });
}

Result<Value> decodePropertyList(std::span<const std::byte> bytes)
{
    if (bytes.size() > UINT32_MAX)
        return corruptPropertyList("it is larger than 4 GiB");
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const auto length = static_cast<std::uint32_t>(bytes.size());
    PropertyListNode node;
    if (text.starts_with("bplist")) {
        TDW_TRY(checkBinaryPropertyListShape(bytes));
        plist_from_bin(text.data(), length, out(node));
    } else {
        TDW_TRY(checkXmlPropertyListShape(text));
        plist_from_xml(text.data(), length, out(node));
    }
    if (!node)
        return corruptPropertyList("its contents are garbage");
    return valueFromNode(node.get());
}

} // namespace tdw
