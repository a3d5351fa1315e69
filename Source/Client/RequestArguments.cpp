#include "Client/RequestArguments.h"

#include "Interfaces/TDWDeviceInfo.h"

#include <array>
#include <charconv>

namespace tdw {

namespace {

using Arguments = std::vector<std::string>;

/// Two decimals and a point, whatever the application's locale.
std::string pixelText(double pixels)
{
    // The longest number has 309 digits before its point.
    std::array<char, 320> text {};
    const auto end = std::to_chars(
        text.data(), text.data() + text.size(), pixels, std::chars_format::fixed, 2);
    return { text.data(), end.ptr };
}

template <typename Query>
Arguments companionArguments(const Query& query)
{
    Arguments arguments { query.udid, std::to_string(query.connectionType) };
    arguments.insert(
        arguments.end(), query.companionIdentifiers.begin(), query.companionIdentifiers.end());
    return arguments;
}

/// The server of each query, and its arguments.
struct Servers {
    TDWServer operator()(const DeviceListQuery&) const { return kTidewellServerList; }
    TDWServer operator()(const DeviceInfoQuery&) const { return kTidewellServerInfo; }
    TDWServer operator()(const BatteryQuery&) const { return kTidewellServerBattery; }
    TDWServer operator()(const CompanionsQuery&) const { return kTidewellServerCompanion; }
    TDWServer operator()(const CompanionBatteriesQuery&) const
    {
        return kTidewellServerCompanionBattery;
    }
    TDWServer operator()(const SettingQuery&) const { return kTidewellServerConfig; }
    TDWServer operator()(const PairingQuery&) const { return kTidewellServerPairing; }
    TDWServer operator()(const WallpaperQuery&) const { return kTidewellServerWallpaper; }
};

struct ArgumentLists {
    Arguments operator()(const DeviceListQuery&) const { return {}; }

    Arguments operator()(const DeviceInfoQuery& query) const
    {
        Arguments arguments { query.udid, std::to_string(query.connectionType) };
        if (query.includesCompanionIdentifiers)
            arguments.emplace_back(kTDWDeviceInfoServerIncludeCompanionIdentifiersFlag);
        if (!query.mayPair)
            arguments.emplace_back(kTDWDeviceInfoServerNeverPairFlag);
        if (query.diagnoses)
            arguments.emplace_back(kTDWDeviceInfoServerDiagnoseFlag);
        if (query.publicOnly)
            arguments.emplace_back(kTDWDeviceInfoServerPublicOnlyFlag);
        return arguments;
    }

    Arguments operator()(const BatteryQuery& query) const
    {
        return { query.udid, std::to_string(query.connectionType) };
    }

    Arguments operator()(const CompanionsQuery& query) const { return companionArguments(query); }

    Arguments operator()(const CompanionBatteriesQuery& query) const
    {
        return companionArguments(query);
    }

    Arguments operator()(const SettingQuery& query) const
    {
        return { query.udid, query.domain, query.key, query.value };
    }

    Arguments operator()(const PairingQuery& query) const
    {
        const bool isPairing = query.action == PairingQuery::Action::Pair;
        return { std::string(
                     isPairing ? kTDWPairingServerActionPair : kTDWPairingServerActionUnpair),
            query.udid };
    }

    Arguments operator()(const WallpaperQuery& query) const
    {
        return { query.udid, std::to_string(query.connectionType),
            std::to_string(query.wallpaperName), pixelText(query.widthPixels) };
    }
};

} // namespace

TDWServer serverFor(const DeviceQuery& query)
{
    return std::visit(Servers(), query);
}

bool isSafeToRepeat(const DeviceQuery& query)
{
    return !std::holds_alternative<SettingQuery>(query)
        && !std::holds_alternative<PairingQuery>(query);
}

std::vector<std::string> argumentsFor(const DeviceQuery& query)
{
    return std::visit(ArgumentLists(), query);
}

} // namespace tdw
