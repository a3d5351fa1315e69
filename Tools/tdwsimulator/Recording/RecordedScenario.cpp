#include "Recording/RecordedScenario.h"

#include "Model/Scenario.h"
#include "Recording/AllowedValues.h"
#include "Recording/Reading.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tdw::simulator {

namespace {

const Dictionary kNothing;

const Dictionary& dictionaryIn(const Dictionary& exchange, std::string_view key)
{
    const Dictionary* found = exchange.dictionaryAt(key);
    return !found ? kNothing : *found;
}

std::string textIn(const Dictionary& dictionary, std::string_view key)
{
    const std::string* text = dictionary.stringAt(key);
    return !text ? std::string() : *text;
}

const Array& arrayIn(const Dictionary& dictionary, std::string_view key)
{
    static const Array kNone;
    const Array* array = dictionary.arrayAt(key);
    return !array ? kNone : *array;
}

/// The size in the first bytes of a PNG image.
std::optional<std::pair<std::uint32_t, std::uint32_t>> pictureSize(const Data& bytes)
{
    constexpr std::size_t kWidth = 16;
    constexpr std::size_t kEnd = kWidth + 8;
    if (bytes.size() < kEnd || bytes[1] != std::byte { 'P' })
        return std::nullopt;
    const auto number = [&](std::size_t at) {
        std::uint32_t value = 0;
        for (std::size_t i = at; i < at + 4; ++i)
            value = value << 8U | std::to_integer<std::uint32_t>(bytes[i]);
        return value;
    };
    return std::pair(number(kWidth), number(kWidth + 4));
}

struct RecordedWatch {
    std::string udid;
    Dictionary values;
    Dictionary errors;
};

/// Everything that one device told, sorted out; nothing is replaced yet.
class RecordedDevice {
public:
    explicit RecordedDevice(const Dictionary& reading)
        : m_reading(reading)
    {
        for (const Value& item : arrayIn(reading, reading::kExchanges)) {
            if (const Dictionary* exchange = item.asDictionary())
                take(*exchange);
        }
    }

    void teach(Replacement& replacement) const
    {
        replacement.learnIdentifier(textIn(m_reading, reading::kUdid));
        for (const RecordedWatch& watch : m_watches)
            replacement.learnIdentifier(watch.udid);
        for (const auto& [domain, values] : m_domains)
            teach(replacement, domain, values);
        for (const RecordedWatch& watch : m_watches)
            teach(replacement, kWatchDomain, watch.values);
    }

    Json json(Replacement& replacement) const
    {
        Json device { { "udid", replacement.text(textIn(m_reading, reading::kUdid)) },
            { "connections", Json::array() }, { "recorded", true } };
        for (const Value& connection : arrayIn(m_reading, reading::kConnections))
            device["connections"].push_back(jsonFromValue(connection));
        addTrust(device);
        if (m_repliesWithResult)
            device["resultReplies"] = true;
        addDomains(device, replacement);
        for (const RecordedWatch& watch : m_watches) {
            Json item { { "udid", replacement.text(watch.udid) },
                { "values", replaced(replacement, kWatchDomain, watch.values) } };
            for (const auto& [key, error] : watch.errors)
                item["errors"][key] = errorName(replacement, *error.asString());
            device["watches"].push_back(std::move(item));
        }
        if (m_orientation)
            device["orientation"] = *m_orientation;
        if (m_wallpaper)
            device["wallpaperSize"]
                = { { "width", m_wallpaper->first }, { "height", m_wallpaper->second } };
        for (Json fault : m_faults) {
            if (fault.contains("error"))
                fault["error"] = errorName(replacement, fault["error"].get<std::string>());
            device["faults"].push_back(std::move(fault));
        }
        return device;
    }

private:
    static void teach(Replacement& replacement, std::string_view domain, const Dictionary& values)
    {
        for (const auto& [key, value] : values) {
            if (keptOf(domain, key) != Kept::Content)
                replacement.learn(value);
        }
    }

    static Json replaced(
        Replacement& replacement, std::string_view domain, const Dictionary& values)
    {
        Json result = Json::object();
        for (const auto& [key, value] : values) {
            const Kept kept = keptOf(domain, key);
            const std::string name = kept == Kept::Nothing ? replacement.key(key) : key;
            result[name] = jsonFromValue(replacement.value(value, kept));
        }
        return result;
    }

    static std::string errorName(Replacement& replacement, const std::string& error)
    {
        return isKnownError(error) ? error : replacement.text(error);
    }

    void take(const Dictionary& exchange)
    {
        const std::string at = textIn(exchange, reading::kAt);
        const Dictionary& request = dictionaryIn(exchange, reading::kRequest);
        const Dictionary& reply = dictionaryIn(exchange, reading::kReply);
        const bool hasSession = exchange.boolAt(reading::kHasSession).value_or(false);
        if (at == reading::kLockdown) {
            m_repliesWithResult = m_repliesWithResult || reply.contains("Result");
            if (textIn(request, "Request") == "GetValue")
                takeValue(request, reply, hasSession);
            else if (textIn(request, "Request") == "StartService" && reply.contains("Error"))
                addFault({ { "at", at }, { "request", "StartService" },
                             { "service", textIn(request, "Service") } },
                    reply, "");
        } else if (!exchange.contains(reading::kReply)) {
            addDrop(at, request);
        } else if (at == reading::kCompanionProxy) {
            takeWatch(request, reply);
        } else {
            takeScreen(request, reply);
        }
    }

    void takeValue(const Dictionary& request, const Dictionary& reply, bool hasSession)
    {
        const std::string domain = textIn(request, "Domain");
        const std::string key = textIn(request, "Key");
        const Value* value = reply.find("Value");
        const Dictionary* values = !value ? nullptr : value->asDictionary();
        Dictionary& known = m_domains[domain];
        if (!key.empty()) {
            // What the simulator says by itself is no fault of a device.
            const std::string error = textIn(reply, "Error");
            const bool isDefault
                = error == (hasSession || isPublic(key) ? "MissingValue" : "GetProhibited");
            if (value && !known.contains(key))
                known.set(key, *value);
            if (value && !hasSession && m_publicKeys && !isPublic(key))
                m_publicKeys->push_back(key);
            if (!value && !isDefault)
                addFault({ { "at", reading::kLockdown }, { "request", "GetValue" },
                             { "domain", domain }, { "key", key } },
                    reply, "");
            return;
        }
        if (values && !hasSession) {
            m_publicKeys.emplace();
            for (const auto& entry : *values)
                m_publicKeys->push_back(entry.key);
        }
        // Over the network a host without a session is told nothing, which says nothing of USB.
        if (!values && hasSession)
            addFault({ { "at", reading::kLockdown }, { "request", "GetValue" },
                         { "domain", domain }, { "key", "" } },
                reply, "");
        if (!values)
            return;
        known = *values;
    }

    void takeWatch(const Dictionary& request, const Dictionary& reply)
    {
        const std::string error = textIn(reply, "Error");
        if (textIn(request, "Command") == "GetDeviceRegistry") {
            for (const Value& watch : arrayIn(reply, "PairedDevicesArray")) {
                if (watch.asString() && isDeviceIdentifier(*watch.asString()))
                    m_watches.push_back(RecordedWatch { *watch.asString(), {}, {} });
            }
            if (!reply.contains("PairedDevicesArray") && error != "NoPairedWatches")
                addFault({ { "at", reading::kCompanionProxy }, { "request", "GetDeviceRegistry" } },
                    reply, "PairedDevicesArray");
            return;
        }
        const std::string key = textIn(request, "GetValueKeyKey");
        const auto watch
            = std::find_if(m_watches.begin(), m_watches.end(), [&](const RecordedWatch& other) {
                  return other.udid == textIn(request, "GetValueGizmoUDIDKey");
              });
        if (watch == m_watches.end())
            return;
        const Value* value = dictionaryIn(reply, "RetrievedValueDictionary").find(key);
        if (value)
            watch->values.set(key, *value);
        else if (error.empty())
            addFault({ { "at", reading::kCompanionProxy }, { "request", "GetValueFromRegistry" },
                         { "key", key } },
                reply, "RetrievedValueDictionary");
        else if (error != "UnsupportedWatchKey")
            watch->errors.set(key, error);
    }

    void takeScreen(const Dictionary& request, const Dictionary& reply)
    {
        const std::string command = textIn(request, "command");
        const auto orientation = reply.intAt("interfaceOrientation");
        const Data* picture = reply.dataAt("pngData");
        const auto size = !picture ? std::nullopt : pictureSize(*picture);
        constexpr std::int64_t kMostOrientations = 8;
        if (orientation && *orientation >= 0 && *orientation <= kMostOrientations)
            m_orientation = *orientation;
        else if (size)
            m_wallpaper = *size;
        else
            addFault({ { "at", reading::kSpringboard }, { "request", command } }, reply,
                command == "getInterfaceOrientation" ? "interfaceOrientation" : "pngData");
    }

    /// The device's refusal, or its reply without the value that should be there.
    void addFault(Json fault, const Dictionary& reply, std::string_view replyKey)
    {
        const std::string error = textIn(reply, "Error");
        fault["fault"] = error.empty() ? "missing-key" : "error";
        if (!error.empty())
            fault["error"] = error;
        else if (!replyKey.empty())
            fault["replyKey"] = replyKey;
        addOnce(std::move(fault));
    }

    void addDrop(const std::string& at, const Dictionary& request)
    {
        const std::string command = textIn(request, "command");
        Json fault { { "at", at }, { "fault", "drop" },
            { "request", command.empty() ? textIn(request, "Command") : command } };
        if (request.contains("GetValueKeyKey"))
            fault["key"] = textIn(request, "GetValueKeyKey");
        addOnce(std::move(fault));
    }

    void addOnce(Json fault)
    {
        if (std::find(m_faults.begin(), m_faults.end(), fault) == m_faults.end())
            m_faults.push_back(std::move(fault));
    }

    void addTrust(Json& device) const
    {
        const std::string error = textIn(m_reading, reading::kSessionError);
        const auto global = m_domains.find(kGlobalDomain);
        if (!m_reading.boolAt(reading::kHasPairRecord).value_or(false)) {
            device["state"] = "unpaired";
            device["trust"] = "asks";
        } else if (!error.empty()) {
            device["trust"] = error == "PasswordProtected" ? "locked"
                : error == "EscrowLocked"                  ? "escrow-locked"
                                                           : "forgot-host";
        } else {
            if (global != m_domains.end()
                && global->second.boolAt("PasswordProtected").value_or(false))
                device["trust"] = "after-first-unlock";
            if (!m_reading.boolAt(reading::kUsesTls).value_or(true))
                device["sessionTLS"] = false;
        }
    }

    void addDomains(Json& device, Replacement& replacement) const
    {
        static const std::map<std::string_view, std::string_view> kOwnKeys { { kGlobalDomain,
                                                                                 "lockdown" },
            { kBatteryDomain, "battery" }, { kWirelessDomain, "wireless" } };
        for (const auto& [domain, key] : kOwnKeys) {
            const auto found = m_domains.find(domain);
            device[std::string(key)] = replaced(
                replacement, domain, found == m_domains.end() ? kNothing : found->second);
        }
        for (const auto& [domain, values] : m_domains) {
            if (!kOwnKeys.contains(domain) && !values.isEmpty())
                device["domains"][domain] = replaced(replacement, domain, values);
        }
        if (!m_publicKeys)
            return;
        device["publicKeys"] = Json::array();
        for (const std::string& key : *m_publicKeys)
            device["publicKeys"].push_back(
                keptOf(kGlobalDomain, key) == Kept::Nothing ? replacement.key(key) : key);
    }

    bool isPublic(const std::string& key) const
    {
        return m_publicKeys
            && std::find(m_publicKeys->begin(), m_publicKeys->end(), key) != m_publicKeys->end();
    }

    const Dictionary& m_reading;
    std::map<std::string, Dictionary, std::less<>> m_domains;
    /// None: not told.
    std::optional<std::vector<std::string>> m_publicKeys;
    std::vector<RecordedWatch> m_watches;
    std::optional<std::int64_t> m_orientation;
    std::optional<std::pair<std::uint32_t, std::uint32_t>> m_wallpaper;
    std::vector<Json> m_faults;
    bool m_repliesWithResult = false;
};

} // namespace

Json recordedScenario(const std::vector<Dictionary>& readings, Replacement& replacement)
{
    std::vector<RecordedDevice> devices;
    devices.reserve(readings.size());
    for (const Dictionary& reading : readings)
        devices.emplace_back(reading);
    // All is learnt before anything is replaced: a phone may tell of another one.
    for (const RecordedDevice& device : devices)
        device.teach(replacement);
    Json scenario { { "description",
                        "Recorded from devices. Names, numbers, addresses and keys are false." },
        { "devices", Json::array() } };
    for (const RecordedDevice& device : devices)
        scenario["devices"].push_back(device.json(replacement));
    return scenario;
}

} // namespace tdw::simulator
