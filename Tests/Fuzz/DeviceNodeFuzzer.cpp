#include "Fuzz.h"
#include "Platform/Values/PropertyList.h"
#include "Server/PropertyListNode.h"

#include <algorithm>
#include <cstdint>

namespace {

/// Builds nodes as a device library might hand them out: a byte for the kind, a byte for the size,
/// then contents. The library's parsers are left out; their faults are not ours.
class NodeMaker {
public:
    explicit NodeMaker(std::span<const std::byte> bytes)
        : m_bytes(bytes)
    {
    }

    plist_t node(int depth)
    {
        const auto kind = number(1);
        const auto size = number(1);
        switch (kind % 9) {
        case 0:
            return plist_new_bool(size & 1);
        case 1:
            return plist_new_uint(number(8));
        case 2:
            return plist_new_real(static_cast<double>(static_cast<std::int64_t>(number(8))) / 997);
        case 3:
            return plist_new_string(text(size).c_str());
        case 4:
            return plist_new_data(text(size).data(), size);
        case 5:
            return plist_new_uid(number(8));
        case 6:
            return date(static_cast<std::int64_t>(number(8)) >> (size % 64));
        case 7:
            return container(plist_new_array(), size, depth);
        default:
            return container(plist_new_dict(), size, depth);
        }
    }

private:
    std::uint64_t number(std::size_t size)
    {
        std::uint64_t result = 0;
        for (const char byte : text(size))
            result = (result << 8) | static_cast<unsigned char>(byte);
        return result;
    }

    /// As long as asked for; zeros follow where the bytes end.
    std::string text(std::size_t size)
    {
        const std::size_t there = std::min(size, m_bytes.size());
        std::string result(textOf(m_bytes.first(there)));
        m_bytes = m_bytes.subspan(there);
        result.resize(size, '\0');
        return result;
    }

    static plist_t date(std::int64_t seconds)
    {
        constexpr std::int64_t kRange = 400'000'000'000;
        const tdw::Date date = std::chrono::sys_days(std::chrono::year { 2001 } / 1 / 1)
            + std::chrono::seconds(seconds % kRange);
        const auto document = tdw::encodeBinaryPropertyList(date);
        plist_t node = nullptr;
        if (document) {
            plist_from_bin(reinterpret_cast<const char*>(document->data()),
                static_cast<std::uint32_t>(document->size()), &node);
        }
        return node ? node : plist_new_bool(0);
    }

    plist_t container(plist_t node, std::uint64_t size, int depth)
    {
        constexpr int kDepth = 250;
        const bool isArray = plist_get_node_type(node) == PLIST_ARRAY;
        for (std::uint64_t i = 0; i < size && depth < kDepth && !m_bytes.empty(); ++i) {
            if (isArray)
                plist_array_append_item(node, this->node(depth + 1));
            else
                plist_dict_set_item(node, ("k" + text(i % 4)).c_str(), this->node(depth + 1));
        }
        return node;
    }

    std::span<const std::byte> m_bytes;
};

} // namespace

/// Every node becomes a value that can be written, or is refused for its depth or size.
void fuzz(std::span<const std::byte> bytes)
{
    // Few bytes make many nodes, and the library's own look-ups are not linear.
    const tdw::PropertyListNode node(
        NodeMaker(bytes.first(std::min<std::size_t>(bytes.size(), 4096))).node(0));
    const auto value = tdw::valueFromNode(node.get());
    if (value)
        require(tdw::encodeXmlPropertyList(*value).hasValue());
    else
        require(value.error().code() == tdw::kPropertyListReadCorruptError);
    (void)tdw::textFromNode(node.get());
}
