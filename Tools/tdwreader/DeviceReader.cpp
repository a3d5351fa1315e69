#include "DeviceReader.h"

#include "Platform/Values/PropertyList.h"
#include "Recording/Reading.h"
#include "Server/PropertyListNode.h"
#include "Server/TDWCompanionServer.h"
#include "Server/TDWDeviceInfoServer.h"
#include "Server/TDWServerLockdown.h"
#include "Support/Diagnostics.h"

#include <libimobiledevice/property_list_service.h>

#include <usbmuxd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

namespace tdw {

namespace {

namespace keys = simulator::reading;

using PropertyListClient
    = Handle<property_list_service_client_private, &property_list_service_client_free>;

constexpr char kLabel[] = "tdwreader";

/// Longer than any caller lets this process wait.
constexpr std::uint32_t kReplyTimeout = 60'000;

/// The first bytes of a picture, which hold its size.
constexpr std::ptrdiff_t kPngHeader = 24;

/// More than a phone has; each costs a connection for each of its keys.
constexpr std::size_t kMostWatches = 16;

/// The domains that lockdown is known to have, the global one apart.
constexpr std::array kDomains { "com.apple.disk_usage", "com.apple.disk_usage.factory",
    "com.apple.fairplay", "com.apple.iTunes", "com.apple.international", "com.apple.iqagent",
    "com.apple.mobile.backup", "com.apple.mobile.battery", "com.apple.mobile.chaperone",
    "com.apple.mobile.data_sync", "com.apple.mobile.iTunes", "com.apple.mobile.iTunes.accessories",
    "com.apple.mobile.iTunes.store", "com.apple.mobile.internal", "com.apple.mobile.lockdown_cache",
    "com.apple.mobile.lockdownd", "com.apple.mobile.mobile_application_usage",
    "com.apple.mobile.nikita", "com.apple.mobile.restriction", "com.apple.mobile.software_behavior",
    "com.apple.mobile.sync_data_class", "com.apple.mobile.tethered_sync",
    "com.apple.mobile.third_party_termination", "com.apple.mobile.user_preferences",
    "com.apple.mobile.wireless_lockdown", "com.apple.purplebuddy",
    "com.apple.xcode.developerdomain" };

/// The device's names for what keeps it from a session.
struct SessionRefusal {
    int code;
    const char* name;
};
constexpr SessionRefusal kSessionRefusals[] = {
    { LOCKDOWN_E_PASSWORD_PROTECTED, "PasswordProtected" },
    { LOCKDOWN_E_ESCROW_LOCKED, "EscrowLocked" },
    { LOCKDOWN_E_INVALID_HOST_ID, "InvalidHostID" },
};

Error failure(std::string_view sentence)
{
    return Error("TDWReaderErrorDomain", 1, sentence);
}

void announce(std::string_view stage)
{
    reportLine(std::string(keys::kStage) + std::string(stage));
}

Result<std::string> hostIdentifier(const std::string& udid)
{
    LibraryText record;
    std::uint32_t size = 0;
    (void)usbmuxd_read_pair_record(udid.c_str(), out(record), &size);
    const auto bytes = std::as_bytes(std::span(record.get(), size));
    const auto values = decodePropertyList(bytes);
    const std::string* identifier = values ? values->stringAt("HostID") : nullptr;
    if (identifier == nullptr)
        return failure("the pair record of " + udid + " cannot be read");
    return *identifier;
}

/// A reply without the picture that is in it.
Value withoutPicture(const Value& reply)
{
    const Data* picture = reply.dataAt("pngData");
    if (picture == nullptr)
        return reply;
    Dictionary values = *reply.asDictionary();
    const auto length = std::min(kPngHeader, static_cast<std::ptrdiff_t>(picture->size()));
    values.set("pngData", Data(picture->begin(), picture->begin() + length));
    return values;
}

} // namespace

Result<Dictionary> connectedDevices()
{
    announce("the list of devices");
    DeviceListHandle devices;
    int count = 0;
    if (idevice_get_device_list_extended(out(devices), &count) != IDEVICE_E_SUCCESS)
        return failure("the multiplexer gives no list of devices; is usbmuxd running?");
    // A device that is connected twice is one device.
    std::vector<std::pair<std::string, Array>> found;
    for (int i = 0; i < count; ++i) {
        const idevice_info_t device = devices.get()[i];
        auto entry = std::find_if(found.begin(), found.end(),
            [&](const auto& other) { return other.first == device->udid; });
        if (entry == found.end())
            entry = found.insert(found.end(), { device->udid, {} });
        entry->second.emplace_back(device->conn_type == CONNECTION_NETWORK ? "network" : "usb");
    }
    Array list;
    for (auto& [udid, connections] : found) {
        list.emplace_back(
            Dictionary { { keys::kUdid, udid }, { keys::kConnections, std::move(connections) } });
    }
    return Dictionary { { keys::kDevices, std::move(list) } };
}

Result<Dictionary> DeviceReader::read(WithWallpaper withWallpaper)
{
    TDW_TRY(open());
    Dictionary reading { { keys::kUdid, m_udid } };
    TDW_TRY(askLockdown("its type", { { "Request", "QueryType" } }));
    TDW_TRY(askLockdown("what it tells every host", { { "Request", "GetValue" } }));
    TDW_TRY(startSession(reading));
    TDW_TRY(readValues());
    if (m_hasSession) {
        TDW_TRY(readWatches());
        TDW_TRY(readScreen(withWallpaper));
    }
    // A service that ended its connection, or a device that has left?
    TDW_TRY(askLockdown("its type again", { { "Request", "QueryType" } }));
    reading.set(keys::kHasSession, m_hasSession);
    reading.set(keys::kExchanges, std::move(m_exchanges));
    return reading;
}

Result<void> DeviceReader::open()
{
    announce("the connection");
    const auto everywhere
        = static_cast<enum idevice_options>(IDEVICE_LOOKUP_USBMUX | IDEVICE_LOOKUP_NETWORK);
    if (!m_session.open(m_udid.c_str(), everywhere))
        return failure("there is no device " + m_udid);
    if (!m_session.connect(Handshake::No))
        return failure(m_udid + " takes no connection");
    return {};
}

Result<void> DeviceReader::startSession(Dictionary& reading)
{
    announce("its session");
    const bool hasRecord = m_session.hasPairRecord();
    reading.set(keys::kHasPairRecord, hasRecord);
    if (!hasRecord)
        return {};
    const std::string host = TDW_TRY(hostIdentifier(m_udid));
    LibraryText session;
    int usesTls = 0;
    const int code
        = lockdownd_start_session(m_session.lockdown(), host.c_str(), out(session), &usesTls);
    m_hasSession = code == LOCKDOWN_E_SUCCESS;
    reading.set(keys::kUsesTls, usesTls != 0);
    if (m_hasSession)
        return {};
    for (const SessionRefusal& refusal : kSessionRefusals) {
        if (refusal.code == code) {
            reading.set(keys::kSessionError, refusal.name);
            return {};
        }
    }
    if (code == LOCKDOWN_E_SSL_ERROR)
        return failure(m_udid + " ends the encryption: it may have forgotten this computer");
    return gone("its session was started");
}

Result<void> DeviceReader::readValues()
{
    if (m_hasSession) {
        TDW_TRY(askLockdown("its values", { { "Request", "GetValue" } }));
        for (const char* domain : kDomains)
            TDW_TRY(askLockdown(domain, { { "Request", "GetValue" }, { "Domain", domain } }));
    }
    // Some keys are told only when they are asked for.
    for (const std::string& key : TDWDeviceInfoKeys())
        TDW_TRY(askLockdown(key, { { "Request", "GetValue" }, { "Key", key } }));
    return {};
}

Result<void> DeviceReader::readWatches()
{
    const auto outcome = TDW_TRY(
        askService("its watches", keys::kCompanionProxy, { { "Command", "GetDeviceRegistry" } }));
    if (outcome == Outcome::Refused)
        return {};
    const Value registry = m_exchanges.back();
    const Value* reply = registry.find(keys::kReply);
    const Array* watches = reply != nullptr ? reply->arrayAt("PairedDevicesArray") : nullptr;
    const std::size_t count = watches != nullptr ? std::min(watches->size(), kMostWatches) : 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string* identifier = (*watches)[i].asString();
        for (const std::string& key : TDWCompanionKeys()) {
            if (identifier != nullptr)
                TDW_TRY(askService("its watch’s " + key, keys::kCompanionProxy,
                    { { "Command", "GetValueFromRegistry" },
                        { "GetValueGizmoUDIDKey", *identifier }, { "GetValueKeyKey", key } }));
        }
    }
    return {};
}

Result<void> DeviceReader::readScreen(WithWallpaper withWallpaper)
{
    const auto outcome = TDW_TRY(askService(
        "how it is held", keys::kSpringboard, { { "command", "getInterfaceOrientation" } }));
    if (outcome == Outcome::Refused || withWallpaper == WithWallpaper::No)
        return {};
    for (const char* place : { "lockscreen", "homescreen" }) {
        TDW_TRY(askService("its wallpaper", keys::kSpringboard,
            { { "command", "getWallpaperPreviewImage" }, { "wallpaperName", place } }));
    }
    return {};
}

Result<Value> DeviceReader::askLockdown(std::string_view stage, Request request)
{
    announce(stage);
    const PropertyListNode node(plist_new_dict());
    plist_dict_set_item(node.get(), "Label", plist_new_string(kLabel));
    for (const auto& [key, value] : request)
        plist_dict_set_item(node.get(), key, plist_new_string(value.c_str()));
    PropertyListNode answer;
    if (lockdownd_send(m_session.lockdown(), node.get()) != LOCKDOWN_E_SUCCESS
        || lockdownd_receive(m_session.lockdown(), out(answer)) != LOCKDOWN_E_SUCCESS)
        return gone(stage);
    auto reply = readNode(answer.get());
    if (!reply || reply->asDictionary() == nullptr)
        return failure(m_udid + " makes no sense where " + std::string(stage) + " was read");
    keep(keys::kLockdown, TDW_TRY(readNode(node.get())), *reply);
    return *std::move(reply);
}

Result<DeviceReader::Outcome> DeviceReader::askService(
    std::string_view stage, std::string_view service, Request request)
{
    const Value started = TDW_TRY(
        askLockdown(stage, { { "Request", "StartService" }, { "Service", std::string(service) } }));
    const auto port = started.intAt("Port");
    if (!port || *port < 1 || *port > UINT16_MAX)
        return Outcome::Refused;
    lockdownd_service_descriptor descriptor {};
    descriptor.port = static_cast<std::uint16_t>(*port);
    descriptor.ssl_enabled = started.boolAt("EnableServiceSSL").value_or(false) ? 1 : 0;

    const PropertyListNode node(plist_new_dict());
    for (const auto& [key, value] : request)
        plist_dict_set_item(node.get(), key, plist_new_string(value.c_str()));
    std::optional<Value> reply;
    PropertyListClient client;
    PropertyListNode answer;
    int code = property_list_service_client_new(m_session.device(), &descriptor, out(client));
    if (code == PROPERTY_LIST_SERVICE_E_SUCCESS)
        code = property_list_service_send_binary_plist(client.get(), node.get());
    if (code == PROPERTY_LIST_SERVICE_E_SUCCESS)
        code = property_list_service_receive_plist_with_timeout(
            client.get(), out(answer), kReplyTimeout);
    if (code == PROPERTY_LIST_SERVICE_E_SUCCESS && answer)
        reply = withoutPicture(TDW_TRY(readNode(answer.get())));
    keep(service, TDW_TRY(readNode(node.get())), std::move(reply));
    return Outcome::Served;
}

void DeviceReader::keep(std::string_view at, Value request, std::optional<Value> reply)
{
    Dictionary exchange { { keys::kAt, at }, { keys::kHasSession, m_hasSession },
        { keys::kRequest, std::move(request) } };
    if (reply)
        exchange.set(keys::kReply, *std::move(reply));
    m_exchanges.emplace_back(std::move(exchange));
}

Error DeviceReader::gone(std::string_view stage) const
{
    return failure(m_udid + " is gone: its connection ended at " + std::string(stage));
}

} // namespace tdw
