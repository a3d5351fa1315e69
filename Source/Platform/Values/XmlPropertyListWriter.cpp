#include "Platform/Values/PropertyListFormats.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <string>

namespace tdw {

namespace {

std::string numberText(double number)
{
    std::array<char, 40> text {};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return { text.data(), end };
}

std::string base64Text(const Data& data)
{
    constexpr std::string_view kDigits
        = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    result.reserve((data.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < data.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, data.size() - i);
        std::uint32_t bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bits = (bits << 8) | (k < count ? std::to_integer<std::uint32_t>(data[i + k]) : 0);
        for (std::size_t k = 0; k < 4; ++k)
            result += k <= count ? kDigits[(bits >> (18 - 6 * k)) & 0x3F] : '=';
    }
    return result;
}

/// Writes one value below the other, each level one tab further in.
class XmlWriter {
public:
    Data run(const Value& value)
    {
        m_text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                 "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                 "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                 "<plist version=\"1.0\">\n";
        write(value, 0);
        m_text += "</plist>\n";
        const auto bytes = std::as_bytes(std::span(m_text));
        return Data(bytes.begin(), bytes.end());
    }

private:
    void write(const Value& value, std::size_t depth)
    {
        switch (value.type()) {
        case Value::Type::Boolean:
            return line(depth, *value.asBoolean() ? "<true/>" : "<false/>");
        case Value::Type::Integer:
            return element(depth, "integer", integerText(*value.asInteger()));
        case Value::Type::Real:
            return element(depth, "real", numberText(*value.asReal()));
        case Value::Type::String:
            return element(depth, "string", *value.asString());
        case Value::Type::Data:
            return element(depth, "data", base64Text(*value.asData()));
        case Value::Type::Date:
            return element(depth, "date", dateText(*value.asDate()));
        case Value::Type::Array:
            if (value.asArray()->empty())
                return line(depth, "<array/>");
            line(depth, "<array>");
            for (const Value& item : *value.asArray())
                write(item, depth + 1);
            return line(depth, "</array>");
        case Value::Type::Dictionary:
            if (value.asDictionary()->isEmpty())
                return line(depth, "<dict/>");
            line(depth, "<dict>");
            for (const auto& [key, content] : *value.asDictionary()) {
                element(depth + 1, "key", key);
                write(content, depth + 1);
            }
            return line(depth, "</dict>");
        case Value::Type::Error:
            break; // refused before anything is written
        }
    }

    void line(std::size_t depth, std::string_view text)
    {
        m_text.append(depth, '\t').append(text) += '\n';
    }

    void element(std::size_t depth, std::string_view name, std::string_view content)
    {
        m_text.append(depth, '\t').append("<").append(name) += '>';
        for (const char character : content)
            escaped(character);
        m_text.append("</").append(name) += ">\n";
    }

    void escaped(char character)
    {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '&')
            m_text += "&amp;";
        else if (character == '<')
            m_text += "&lt;";
        else if (character == '>')
            m_text += "&gt;";
        else if (byte >= 0x20 || byte == '\t' || byte == '\n' || byte == '\r')
            m_text += character;
        else
            m_text += "\xEF\xBF\xBD"; // XML cannot hold it, not even as a reference
    }

    std::string m_text;
};

} // namespace

Data writeXmlPropertyList(const Value& value)
{
    return XmlWriter().run(value);
}

} // namespace tdw
