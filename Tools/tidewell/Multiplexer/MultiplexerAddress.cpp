#include "Multiplexer/MultiplexerAddress.h"

#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace tdw::cli {

namespace {

constexpr std::string_view kDefaultPath = "/var/run/usbmuxd";
constexpr std::string_view kLocalPrefix = "UNIX:";

std::optional<MultiplexerAddress> networkAddress(std::string_view text)
{
    const auto colon = text.rfind(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    const std::string_view digits = text.substr(colon + 1);
    MultiplexerAddress address;
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), address.port);
    if (parsed.ec != std::errc() || parsed.ptr != digits.data() + digits.size()
        || address.port == 0)
        return std::nullopt;

    std::string_view host = text.substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']'))
        host = host.substr(1, host.size() - 2);
    if (host.empty())
        return std::nullopt;
    address.host = host;
    address.isFromEnvironment = true;
    return address;
}

} // namespace

std::string MultiplexerAddress::description() const
{
    if (!path.empty())
        return path;
    const bool isNumericV6 = host.find(':') != std::string::npos;
    return (isNumericV6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

MultiplexerAddress multiplexerAddress(const char* variable)
{
    const std::string_view text = variable ? variable : "";
    if (text.starts_with(kLocalPrefix) && text.size() > kLocalPrefix.size())
        return { .path = std::string(text.substr(kLocalPrefix.size())), .isFromEnvironment = true };
    if (!text.starts_with(kLocalPrefix)) {
        if (auto address = networkAddress(text))
            return *std::move(address);
    }
    return { .path = std::string(kDefaultPath) };
}

MultiplexerAddress multiplexerAddress()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    return multiplexerAddress(std::getenv("USBMUXD_SOCKET_ADDRESS"));
}

} // namespace tdw::cli
