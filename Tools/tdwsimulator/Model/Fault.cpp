#include "Model/Fault.h"

#include "Model/JsonObject.h"
#include "Model/SimulatorError.h"

#include <algorithm>
#include <array>

namespace tdw::simulator {

namespace {

/// In the order of `FaultKind`.
constexpr std::array<std::string_view, 16> kKindNames { "delay", "hang", "drop", "truncate",
    "garbage", "oversize", "wrong-type", "missing-key", "not-a-dictionary", "error",
    "close-after-reply", "detach", "wrong-certificate", "absent", "no-serial-number",
    "result-only" };

/// What is asked at each place. A fault elsewhere would strike nothing.
struct Place {
    std::string_view name;
    std::vector<std::string_view> requests;
};

const std::vector<Place>& places()
{
    static const std::vector<std::string_view> notifications { "ObserveNotification",
        "PostNotification", "Shutdown" };
    static const std::vector<Place> all {
        { kMuxPlace,
            { "Accept", "Listen", "ListDevices", "ListListeners", "Connect", "ReadBUID",
                "ReadPairRecord", "SavePairRecord", "DeletePairRecord", "Attached", "Detached",
                "Paired", "Binary", "Unreadable" } },
        { kLockdownPlace,
            { "QueryType", "GetValue", "SetValue", "RemoveValue", "Pair", "ValidatePair", "Unpair",
                "StartSession", "StopSession", "StartService", "Goodbye" } },
        { kTlsPlace, { "Handshake" } },
        { kUsbPlace, { "Open", "Configure", "Control", "Version", "Connect" } },
        { "com.apple.companion_proxy", { "GetDeviceRegistry", "GetValueFromRegistry" } },
        { "com.apple.springboardservices",
            { "getInterfaceOrientation", "getWallpaperPreviewImage",
                "getHomeScreenWallpaperPNGData", "getWallpaperInfo" } },
        { "com.apple.mobile.notification_proxy", notifications },
        { "com.apple.mobile.insecure_notification_proxy", notifications },
    };
    return all;
}

Result<void> checkRequest(const Fault& fault, const std::string& path)
{
    std::vector<std::string_view> names;
    for (const Place& place : places()) {
        names.push_back(place.name);
        if (place.name != fault.at)
            continue;
        if (!fault.request
            || std::ranges::find(place.requests, *fault.request) != place.requests.end())
            return {};
        return simulatorError(path + ".request: \"" + *fault.request + "\" is not one of "
            + joined(place.requests) + ", which is what comes to " + fault.at);
    }
    return simulatorError(path + ".at: \"" + fault.at + "\" is not one of " + joined(names));
}

bool messageHas(
    const Dictionary* message, std::string_view key, const std::optional<std::string>& expected)
{
    if (!expected)
        return true;
    const std::string* value = message ? message->stringAt(key) : nullptr;
    return value ? *value == *expected : expected->empty();
}

/// Where a request says which value it is about.
std::string_view keyOfKey(const FaultSite& site)
{
    return site.request == "GetValueFromRegistry" ? "GetValueKeyKey" : "Key";
}

bool matches(const Fault& fault, const FaultSite& site)
{
    return fault.at == site.at && (!fault.device || *fault.device == site.device)
        && (!fault.request || *fault.request == site.request)
        && messageHas(site.message, "Domain", fault.domain)
        && messageHas(site.message, keyOfKey(site), fault.key)
        && messageHas(site.message, "Service", fault.service);
}

Result<void> checkPlace(const Fault& fault, const std::string& path)
{
    const bool muxOnly = fault.kind == FaultKind::Absent || fault.kind == FaultKind::NoSerialNumber
        || fault.kind == FaultKind::ResultOnly;
    const bool tlsOnly = fault.kind == FaultKind::WrongCertificate;
    const bool tlsToo = tlsOnly || fault.kind == FaultKind::Delay || fault.kind == FaultKind::Hang
        || fault.kind == FaultKind::Drop || fault.kind == FaultKind::Garbage
        || fault.kind == FaultKind::Detach;
    const bool answerOnly = fault.kind == FaultKind::Error || fault.kind == FaultKind::WrongType
        || fault.kind == FaultKind::MissingKey;
    if ((muxOnly && fault.at != kMuxPlace) || (tlsOnly && fault.at != kTlsPlace)
        || (!tlsToo && fault.at == kTlsPlace) || (answerOnly && fault.at == kMuxPlace)) {
        return simulatorError(path + ".fault: \""
            + std::string(kKindNames[static_cast<std::size_t>(fault.kind)])
            + "\" cannot happen at \"" + fault.at + "\"");
    }
    return {};
}

} // namespace

Result<Fault> faultFromJson(
    const Json& json, const std::string& path, const std::filesystem::path& directory)
{
    JsonObject object = TDW_TRY(JsonObject::open(json, path));
    Fault fault;
    fault.at = TDW_TRY(object.requiredString("at"));
    TDW_TRY(object.requiredString("fault"));
    fault.kind = static_cast<FaultKind>(*TDW_TRY(object.word("fault", kKindNames)));
    fault.device = TDW_TRY(object.string("device"));
    fault.request = TDW_TRY(object.string("request"));
    TDW_TRY(checkRequest(fault, path));
    TDW_TRY(checkPlace(fault, path));
    fault.domain = TDW_TRY(object.string("domain"));
    fault.key = TDW_TRY(object.string("key"));
    fault.service = TDW_TRY(object.string("service"));
    fault.first = TDW_TRY(object.number("nth", 1)).value_or(1);
    fault.count = TDW_TRY(object.number("count", 1));
    fault.bytes = TDW_TRY(object.number("bytes"));
    fault.replyKey = TDW_TRY(object.string("replyKey"));
    if (const Json* value = object.take("value"))
        fault.value = TDW_TRY(valueFromJson(*value, object.pathOf("value"), directory));
    if (fault.kind == FaultKind::Delay) {
        const auto milliseconds = TDW_TRY(object.number("milliseconds", 1));
        if (!milliseconds || *milliseconds > 3'600'000)
            return simulatorError(object.pathOf("milliseconds") + ": a delay needs 1 to 3600000");
        fault.delay = std::chrono::milliseconds(*milliseconds);
    }
    if (fault.kind == FaultKind::Error)
        fault.error = TDW_TRY(object.requiredString("error"));
    TDW_TRY(object.refuseOtherKeys());
    return fault;
}

std::uint64_t FaultTable::add(Fault fault)
{
    m_entries.push_back(Entry { ++m_lastNumber, std::move(fault) });
    return m_lastNumber;
}

bool FaultTable::remove(std::uint64_t number)
{
    return std::erase_if(m_entries, [number](const Entry& entry) { return entry.number == number; })
        != 0;
}

std::optional<Fault> FaultTable::take(const FaultSite& site)
{
    for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
        if (!matches(entry->fault, site))
            continue;
        if (++entry->seen < entry->fault.first)
            continue;
        Fault fault = entry->fault;
        if (fault.count && entry->seen >= fault.first + *fault.count - 1)
            m_entries.erase(entry);
        return fault;
    }
    return std::nullopt;
}

bool FaultTable::contains(FaultKind kind, std::string_view at) const
{
    return std::any_of(m_entries.begin(), m_entries.end(),
        [&](const Entry& entry) { return entry.fault.kind == kind && entry.fault.at == at; });
}

} // namespace tdw::simulator
