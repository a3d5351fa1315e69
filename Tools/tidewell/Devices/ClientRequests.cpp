#include "Devices/ClientRequests.h"

#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWServer.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cstdint>
#include <utility>

namespace tdw::cli {

namespace {

using Client = TidewellServiceClient;
using Handler = TidewellServiceClient::CompletionHandler;

/// A server's arguments, taken one by one.
class ArgumentList {
public:
    explicit ArgumentList(const std::vector<std::string>& arguments)
        : m_arguments(arguments)
    {
    }

    std::string text() { return m_next < m_arguments.size() ? m_arguments[m_next++] : ""; }

    template <typename Number>
    Number number()
    {
        const std::string argument = text();
        Number result {};
        (void)std::from_chars(argument.data(), argument.data() + argument.size(), result);
        return result;
    }

    std::vector<std::string> rest()
    {
        const auto first = m_arguments.begin()
            + static_cast<std::ptrdiff_t>(std::exchange(m_next, m_arguments.size()));
        return { first, m_arguments.end() };
    }

private:
    const std::vector<std::string>& m_arguments;
    std::size_t m_next = 0;
};

void list(Client& client, ArgumentList&, Handler handler)
{
    client.deviceListWithCompletionHandler(std::move(handler));
}

void info(Client& client, ArgumentList& arguments, Handler handler)
{
    const std::string udid = arguments.text();
    const auto connection = arguments.number<std::uint64_t>();
    const bool includesCompanions
        = arguments.text() == kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag;
    client.deviceInfoWithUDID(udid, includesCompanions, connection, std::move(handler));
}

void battery(Client& client, ArgumentList& arguments, Handler handler)
{
    const std::string udid = arguments.text();
    client.deviceBatteryWithUDID(udid, arguments.number<std::uint64_t>(), std::move(handler));
}

void companions(Client& client, ArgumentList& arguments, Handler handler)
{
    const std::string udid = arguments.text();
    const auto connection = arguments.number<std::uint64_t>();
    client.companionDevicesForDeviceWithUDID(
        udid, connection, arguments.rest(), std::move(handler));
}

void companionBatteries(Client& client, ArgumentList& arguments, Handler handler)
{
    const std::string udid = arguments.text();
    const auto connection = arguments.number<std::uint64_t>();
    client.companionBatteriesForDeviceWithUDID(
        udid, connection, arguments.rest(), std::move(handler));
}

void configuration(Client& client, ArgumentList& arguments, Handler handler)
{
    const std::string udid = arguments.text();
    const std::string domain = arguments.text();
    const std::string key = arguments.text();
    client.deviceSetDomainKeyValue(udid, domain, key, arguments.text(), std::move(handler));
}

void pairing(Client& client, ArgumentList& arguments, Handler handler)
{
    if (arguments.text() == kTDWPairingServerActionPair)
        client.pairDeviceWithUDID(arguments.text(), std::move(handler));
    else
        client.unpairDeviceWithUDID(arguments.text(), std::move(handler));
}

void wallpaper(Client& client, ArgumentList& arguments, Handler handler)
{
    const std::string udid = arguments.text();
    const auto connection = arguments.number<std::uint64_t>();
    const auto name = arguments.number<std::uint64_t>();
    client.getWallpaperPreviewImageForDeviceWithUDID(
        udid, connection, name, arguments.number<double>(), std::move(handler));
}

} // namespace

void sendByClient(Client& client, std::string_view server,
    const std::vector<std::string>& arguments, Handler handler)
{
    using Request = void (*)(Client&, ArgumentList&, Handler);
    const std::pair<std::string_view, Request> requests[] = {
        { kTidewellServerList, &list },
        { kTidewellServerInfo, &info },
        { kTidewellServerBattery, &battery },
        { kTidewellServerCompanion, &companions },
        { kTidewellServerCompanionBattery, &companionBatteries },
        { kTidewellServerConfig, &configuration },
        { kTidewellServerPairing, &pairing },
        { kTidewellServerWallpaper, &wallpaper },
    };
    const auto* const found
        = std::ranges::find_if(requests, [&](const auto& entry) { return entry.first == server; });
    assert(found != std::end(requests));
    ArgumentList taken(arguments);
    found->second(client, taken, std::move(handler));
}

} // namespace tdw::cli
