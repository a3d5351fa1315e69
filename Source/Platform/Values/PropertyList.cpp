#include "Platform/Values/PropertyList.h"

#include "Platform/Values/PropertyListFormats.h"
#include "Platform/Values/Utf8.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace tdw {

namespace {

/// Makes sure that a value can be written, keeping the key path for the message of an error.
class WritableCheck {
public:
    Result<void> check(const Value& value, std::size_t depth)
    {
        if (depth > kPropertyListMaximumDepth)
            return unwritable("it is nested too deeply");
        switch (value.type()) {
        case Value::Type::String:
            return text(*value.asString());
        case Value::Type::Date:
            if (*value.asDate() < kFirstPropertyListDate || *value.asDate() > kLastPropertyListDate)
                return unwritable("its date lies outside the years 1 to 9999");
            return {};
        case Value::Type::Array:
            for (std::size_t i = 0; i < value.asArray()->size(); ++i) {
                const PathStep step(m_path, std::to_string(i));
                TDW_TRY(check((*value.asArray())[i], depth + 1));
            }
            return {};
        case Value::Type::Dictionary:
            for (const auto& [key, content] : *value.asDictionary()) {
                const PathStep step(m_path, key);
                TDW_TRY(text(key));
                TDW_TRY(check(content, depth + 1));
            }
            return {};
        case Value::Type::Error:
            return unwritable("it is an error object");
        default:
            return {};
        }
    }

private:
    Result<void> text(std::string_view text) const
    {
        if (!isValidUtf8(text))
            return unwritable("its text is not UTF-8");
        if (text.find('\0') != std::string_view::npos)
            return unwritable("its text holds a NUL");
        return {};
    }

    Error unwritable(std::string_view what) const
    {
        constexpr std::size_t kShown = 400;
        const std::string path = withControlCharactersEscaped(m_path.substr(0, kShown));
        return Error(kCocoaErrorDomain, kPropertyListWriteInvalidError,
            "Cannot write the value" + (path.empty() ? "" : " at \"" + path + "\"")
                + " as a property list: " + std::string(what));
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
            m_path += step;
        }
        PathStep(const PathStep&) = delete;
        PathStep& operator=(const PathStep&) = delete;
        ~PathStep() { m_path.resize(m_length); }

    private:
        std::string& m_path;
        std::size_t m_length;
    };

    std::string m_path;
};

} // namespace

Result<Data> encodeXmlPropertyList(const Value& value)
{
    TDW_TRY(WritableCheck().check(value, 0));
    return writeXmlPropertyList(value);
}

Result<Data> encodeBinaryPropertyList(const Value& value)
{
    TDW_TRY(WritableCheck().check(value, 0));
    return writeBinaryPropertyList(value);
}

Result<Value> decodePropertyList(std::span<const std::byte> bytes)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.starts_with("bplist"))
        return readBinaryPropertyList(bytes);
    if (text.find('\0') != std::string_view::npos)
        return corruptPropertyList("it holds a NUL");
    return readXmlPropertyList(text);
}

} // namespace tdw
