#include "Platform/Values/PropertyListFormats.h"
#include "Platform/Values/Utf8.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace tdw {

namespace {

/// How many bytes a number takes: 1, 2, 4 or 8.
std::size_t bytesOf(std::uint64_t number)
{
    if (number <= UINT8_MAX)
        return 1;
    if (number <= UINT16_MAX)
        return 2;
    return number <= UINT32_MAX ? 4 : 8;
}

std::u16string utf16Of(std::string_view text)
{
    std::u16string result;
    while (!text.empty()) {
        const std::size_t length = utf8SequenceLength(text).value_or(1);
        std::uint32_t codePoint = static_cast<unsigned char>(text.front());
        if (length > 1)
            codePoint &= 0xFFU >> (length + 1);
        for (std::size_t i = 1; i < length; ++i)
            codePoint = (codePoint << 6) | (static_cast<unsigned char>(text[i]) & 0x3FU);
        if (codePoint > 0xFFFF) {
            result += static_cast<char16_t>(0xD800 + ((codePoint - 0x10000) >> 10));
            codePoint = 0xDC00 + ((codePoint - 0x10000) & 0x3FF);
        }
        result += static_cast<char16_t>(codePoint);
        text.remove_prefix(length);
    }
    return result;
}

/// Numbers the objects first, each text once, and then writes one after the other.
class BinaryWriter {
public:
    Data run(const Value& value)
    {
        add(value);
        m_referenceSize = bytesOf(m_objects.size());
        for (const char character : std::string_view("bplist00"))
            m_bytes.push_back(static_cast<std::byte>(character));
        std::vector<std::uint64_t> offsets;
        offsets.reserve(m_objects.size());
        for (const Object& object : m_objects) {
            offsets.push_back(m_bytes.size());
            write(object);
        }
        const std::uint64_t table = m_bytes.size();
        const std::size_t offsetSize = bytesOf(table);
        for (const std::uint64_t offset : offsets)
            number(offset, offsetSize);
        number(0, 6);
        number(offsetSize, 1);
        number(m_referenceSize, 1);
        number(m_objects.size(), 8);
        number(0, 8); // the root
        number(table, 8);
        return std::move(m_bytes);
    }

private:
    struct Object {
        const Value* value = nullptr; ///< null for a text
        std::string_view text {};
        std::vector<std::size_t> children {};
    };

    std::size_t add(const Value& value)
    {
        if (const std::string* text = value.asString())
            return addText(*text);
        const std::size_t index = m_objects.size();
        m_objects.push_back({ .value = &value });
        std::vector<std::size_t> children;
        if (const Array* array = value.asArray()) {
            children.reserve(array->size());
            for (const Value& item : *array)
                children.push_back(add(item));
        } else if (const Dictionary* dictionary = value.asDictionary()) {
            children.reserve(dictionary->size() * 2);
            for (const auto& entry : *dictionary)
                children.push_back(addText(entry.key));
            for (const auto& entry : *dictionary)
                children.push_back(add(entry.value));
        }
        m_objects[index].children = std::move(children);
        return index;
    }

    std::size_t addText(std::string_view text)
    {
        const auto [place, isNew] = m_texts.emplace(text, m_objects.size());
        if (isNew)
            m_objects.push_back({ .text = text });
        return place->second;
    }

    void write(const Object& object)
    {
        if (object.value == nullptr)
            return text(object.text);
        const Value& value = *object.value;
        if (const auto boolean = value.asBoolean()) {
            number(*boolean ? 0x09 : 0x08, 1);
        } else if (const Integer* integer = value.asInteger()) {
            this->integer(*integer);
        } else if (const auto real = value.asReal()) {
            number(0x23, 1);
            number(std::bit_cast<std::uint64_t>(*real), 8);
        } else if (const auto date = value.asDate()) {
            const std::chrono::duration<double> sinceEpoch = *date - kPropertyListEpoch;
            number(0x33, 1);
            number(std::bit_cast<std::uint64_t>(sinceEpoch.count()), 8);
        } else if (const Data* data = value.asData()) {
            marker(0x4, data->size());
            m_bytes.insert(m_bytes.end(), data->begin(), data->end());
        } else {
            const bool isArray = value.asArray() != nullptr;
            marker(isArray ? 0xA : 0xD, object.children.size() / (isArray ? 1 : 2));
            for (const std::size_t child : object.children)
                number(child, m_referenceSize);
        }
    }

    void text(std::string_view text)
    {
        const bool isAscii = std::all_of(text.begin(), text.end(),
            [](char character) { return static_cast<unsigned char>(character) < 0x80; });
        if (isAscii) {
            marker(0x5, text.size());
            const auto bytes = std::as_bytes(std::span(text));
            m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
            return;
        }
        const std::u16string units = utf16Of(text);
        marker(0x6, units.size());
        for (const char16_t unit : units)
            number(unit, 2);
    }

    void integer(const Integer& integer)
    {
        const std::uint64_t bits = integer.bits();
        if (!integer.isNegative() && bits > INT64_MAX) {
            // Eight bytes are signed, so what only an unsigned number can hold takes sixteen.
            number(0x14, 1);
            number(0, 8);
            return number(bits, 8);
        }
        const std::size_t size = integer.isNegative() ? 8 : bytesOf(bits);
        number(0x10 | static_cast<unsigned>(std::countr_zero(size)), 1);
        number(bits, size);
    }

    /// A kind with its count of units, which stands in an integer of its own where it is large.
    void marker(unsigned kind, std::uint64_t count)
    {
        number(kind << 4 | std::min<std::uint64_t>(count, 0xF), 1);
        if (count >= 0xF)
            integer(Integer(count));
    }

    void number(std::uint64_t number, std::size_t size)
    {
        for (std::size_t i = size; i > 0; --i)
            m_bytes.push_back(static_cast<std::byte>(number >> (8 * (i - 1))));
    }

    Data m_bytes;
    std::size_t m_referenceSize = 1;
    std::vector<Object> m_objects;
    std::unordered_map<std::string_view, std::size_t> m_texts;
};

} // namespace

Data writeBinaryPropertyList(const Value& value)
{
    return BinaryWriter().run(value);
}

} // namespace tdw
