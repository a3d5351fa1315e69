#include "Platform/PropertyList.h"
#include "Platform/PropertyListShape.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace tdw {

namespace {

constexpr std::array<std::string_view, 11> kElements { "plist", "dict", "array", "key", "string",
    "integer", "real", "true", "false", "date", "data" };

constexpr std::string_view kSpace = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Walks the tags of an XML document and keeps the open ones.
class XmlTagWalker {
public:
    explicit XmlTagWalker(std::string_view text)
        : m_rest(text)
    {
        if (m_rest.starts_with(kByteOrderMark))
            m_rest.remove_prefix(kByteOrderMark.size());
    }

    Result<void> run()
    {
        while (true) {
            const auto tag = m_rest.find('<');
            if (m_open.empty() && m_rest.substr(0, tag).find_first_not_of(kSpace) != m_rest.npos)
                return corruptPropertyList("text stands outside its elements");
            if (tag == std::string_view::npos)
                break;
            m_rest.remove_prefix(tag);
            TDW_TRY(step());
        }
        if (!m_open.empty())
            return corruptPropertyList("it ends inside <" + std::string(m_open.back()) + ">");
        if (!m_sawElement)
            return corruptPropertyList("it holds no element");
        return {};
    }

private:
    Result<void> step()
    {
        if (m_rest.starts_with("<!--"))
            return skipPast("-->");
        if (m_rest.starts_with("<![CDATA[")) {
            if (m_open.empty())
                return corruptPropertyList("character data outside an element");
            return skipPast("]]>");
        }
        if (m_rest.starts_with("<?"))
            return skipPast("?>");
        if (m_rest.starts_with("<!"))
            return skipDeclaration();
        return element();
    }

    Result<void> skipPast(std::string_view end)
    {
        const auto found = m_rest.find(end, 2);
        if (found == std::string_view::npos)
            return corruptPropertyList("it ends before \"" + std::string(end) + "\"");
        m_rest.remove_prefix(found + end.size());
        return {};
    }

    /// A document type; an internal subset would be the place of entity tricks and is refused.
    Result<void> skipDeclaration()
    {
        const auto end = m_rest.find_first_of("[>", 2);
        if (end == std::string_view::npos || m_rest[end] == '[')
            return corruptPropertyList("it holds an unfinished or internal document type");
        m_rest.remove_prefix(end + 1);
        return {};
    }

    Result<void> element()
    {
        const auto end = m_rest.find('>');
        if (end == std::string_view::npos)
            return corruptPropertyList("it ends inside a tag");
        std::string_view body = m_rest.substr(1, end - 1);
        m_rest.remove_prefix(end + 1);
        const bool closes = body.starts_with('/');
        const bool isEmpty = !closes && body.ends_with('/');
        if (closes)
            body.remove_prefix(1);
        const auto name = body.substr(0, body.find_first_of(" \t\r\n/"));
        const auto known = std::find(kElements.begin(), kElements.end(), name);
        if (known == kElements.end())
            return corruptPropertyList("unknown element <" + std::string(name.substr(0, 40)) + ">");
        return closes ? close(*known) : open(*known, isEmpty);
    }

    Result<void> open(std::string_view name, bool isEmpty)
    {
        if (m_open.empty() && m_sawElement)
            return corruptPropertyList("a second document follows the first");
        m_sawElement = true;
        if (++m_objects > kPropertyListMaximumObjects)
            return corruptPropertyList("it holds too many objects");
        if (isEmpty)
            return {};
        // Two more than values may nest: <plist> and the innermost value's own tags.
        if (m_open.size() == kPropertyListMaximumDepth + 2)
            return corruptPropertyList("it is nested too deeply");
        m_open.push_back(name);
        return {};
    }

    Result<void> close(std::string_view name)
    {
        if (m_open.empty() || m_open.back() != name)
            return corruptPropertyList("</" + std::string(name) + "> closes nothing");
        m_open.pop_back();
        return {};
    }

    std::string_view m_rest;
    std::vector<std::string_view> m_open;
    std::size_t m_objects = 0;
    bool m_sawElement = false;
};

} // namespace

Error corruptPropertyList(std::string_view what)
{
    return Error(kCocoaErrorDomain, kPropertyListReadCorruptError,
        "Not a readable property list: " + std::string(what));
}

Result<void> checkXmlPropertyListShape(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos)
        return corruptPropertyList("it holds a NUL");
    return XmlTagWalker(text).run();
}

} // namespace tdw
