#include "Model/Scenario.h"

#include "Model/JsonObject.h"
#include "Model/SimulatorError.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

namespace tdw::simulator {

namespace {

/// What a device answers that a scenario says nothing about.
Dictionary defaultLockdownValues()
{
    return Dictionary { { "ActivationState", "Activated" },
        { "BluetoothAddress", "02:00:5e:20:00:99" }, { "BuildVersion", "22F76" },
        { "CPUArchitecture", "arm64e" }, { "DeviceClass", "iPhone" }, { "DeviceColor", "1" },
        { "DeviceName", "Simulated iPhone" }, { "HardwareModel", "D83AP" },
        { "HostAttached", true }, { "PasswordProtected", false }, { "ProductName", "iPhone OS" },
        { "ProductType", "iPhone16,1" }, { "ProductVersion", "18.5" }, { "ProtocolVersion", "2" },
        { "SerialNumber", "TWSIM0000Z" }, { "TimeZone", "Europe/Berlin" },
        { "WiFiAddress", "02:00:5e:10:00:99" } };
}

Dictionary defaultBatteryValues()
{
    return Dictionary { { "BatteryCurrentCapacity", 80 }, { "BatteryIsCharging", false },
        { "ExternalChargeCapable", true }, { "ExternalConnected", false },
        { "FullyCharged", false }, { "GasGaugeCapability", true }, { "HasBattery", true } };
}

Dictionary defaultWirelessValues()
{
    return Dictionary { { "EnableWifiConnections", false }, { "EnableWifiDebugging", false },
        { "SupportsWifi", true }, { "SupportsWifiSyncing", true } };
}

/// The longest side of a wallpaper that is drawn.
constexpr std::uint64_t kLongestPictureSide = 8192;

/// Simulated devices are reached from this machine alone.
bool isLoopbackAddress(const std::string& text)
{
    in_addr address {};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1
        && ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET;
}

class ScenarioReader {
public:
    explicit ScenarioReader(const std::filesystem::path& directory)
        : m_directory(directory)
    {
    }

    Result<Scenario> read(const Json& json)
    {
        JsonObject object = TDW_TRY(JsonObject::open(json, ""));
        Scenario scenario;
        TDW_TRY(object.string("description"));
        if (const auto layout = TDW_TRY(object.word("networkAddressLayout", kAddressLayoutNames)))
            scenario.addressLayout = static_cast<AddressLayout>(*layout);
        if (const auto release = TDW_TRY(object.word("multiplexer", kMultiplexerNames)))
            scenario.multiplexer = static_cast<MultiplexerRelease>(*release);
        if (auto buid = TDW_TRY(object.string("systemBUID")))
            scenario.systemBuid = *std::move(buid);
        for (const Json* item : TDW_TRY(object.array("devices"))) {
            const std::string path = "devices[" + std::to_string(scenario.devices.size()) + "]";
            DeviceDescription device = TDW_TRY(readDevice(*item, path));
            for (const DeviceDescription& other : scenario.devices) {
                if (other.udid == device.udid)
                    return simulatorError(path + ".udid: \"" + device.udid + "\" is there twice");
            }
            scenario.devices.push_back(std::move(device));
        }
        scenario.faults = TDW_TRY(readFaults(object, std::nullopt));
        // A fault may stand with its device or with the whole scenario.
        for (Fault& fault : m_deviceFaults)
            scenario.faults.push_back(std::move(fault));
        TDW_TRY(object.refuseOtherKeys());
        return scenario;
    }

private:
    Result<DeviceDescription> readDevice(const Json& json, const std::string& path)
    {
        JsonObject object = TDW_TRY(JsonObject::open(json, path));
        DeviceDescription device;
        device.udid = TDW_TRY(object.requiredString("udid"));
        if (!isDeviceIdentifier(device.udid)) {
            return simulatorError(object.pathOf("udid") + ": \"" + device.udid
                + "\" is not a device identifier (24 to 40 of 0-9, A-F and hyphens)");
        }
        device.connections = TDW_TRY(readConnections(object));
        device.domains = TDW_TRY(readDomains(object));
        device.publicKeys = TDW_TRY(readPublicKeys(object));
        Dictionary& global = device.domains[std::string(kGlobalDomain)];
        if (!global.contains("UniqueDeviceID"))
            global.set("UniqueDeviceID", device.udid);
        TDW_TRY(readTrust(object, device));
        device.usesTls = TDW_TRY(object.boolean("sessionTLS")).value_or(true);
        device.repliesWithResult = TDW_TRY(object.boolean("resultReplies")).value_or(false);
        if (const auto speed = TDW_TRY(object.word("usbSpeed", kUsbSpeedNames)))
            device.usbSpeed = static_cast<UsbSpeed>(*speed + 1);
        device.networkAddress = TDW_TRY(object.string("networkAddress"));
        if (device.networkAddress && !isLoopbackAddress(*device.networkAddress)) {
            return simulatorError(object.pathOf("networkAddress") + ": \"" + *device.networkAddress
                + "\" is not an address in 127.0.0.0/8");
        }
        for (const Json* item : TDW_TRY(object.array("watches"))) {
            device.companions.push_back(TDW_TRY(readCompanion(*item,
                object.pathOf("watches[" + std::to_string(device.companions.size()) + "]"))));
        }
        device.orientation = TDW_TRY(object.number("orientation")).value_or(device.orientation);
        device.wallpaper = TDW_TRY(readWallpaper(object));
        device.wallpaperSize = TDW_TRY(readWallpaperSize(object));
        for (Fault& fault : TDW_TRY(readFaults(object, device.udid)))
            m_deviceFaults.push_back(std::move(fault));
        TDW_TRY(object.refuseOtherKeys());
        return device;
    }

    Result<std::vector<ConnectionType>> readConnections(JsonObject& object)
    {
        if (!object.take("connections"))
            return std::vector { ConnectionType::Usb };
        std::vector<ConnectionType> connections;
        for (const Json* item : TDW_TRY(object.array("connections"))) {
            const auto* name = item->get_ptr<const std::string*>();
            const auto* found = name
                ? std::find(std::begin(kConnectionTypeNames), std::end(kConnectionTypeNames), *name)
                : std::end(kConnectionTypeNames);
            const auto position = found - std::begin(kConnectionTypeNames);
            const auto type = static_cast<ConnectionType>(position);
            const bool isTwice
                = std::find(connections.begin(), connections.end(), type) != connections.end();
            if (found == std::end(kConnectionTypeNames) || isTwice) {
                return simulatorError(object.pathOf("connections") + ": " + jsonText(*item)
                    + " is not one of usb, network, each at most once");
            }
            connections.push_back(type);
        }
        return connections;
    }

    Result<std::map<std::string, Dictionary, std::less<>>> readDomains(JsonObject& object)
    {
        std::map<std::string, Dictionary, std::less<>> domains;
        auto read = [&](std::string_view key, std::string_view domain,
                        Dictionary defaults) -> Result<void> {
            const Json* json = object.take(key);
            if (json && domain == kGlobalDomain)
                defaults = TDW_TRY(withDefaults(*json, object.pathOf(key), std::move(defaults)));
            else if (json)
                defaults = TDW_TRY(dictionaryFromJson(*json, object.pathOf(key), m_directory));
            domains[std::string(domain)] = std::move(defaults);
            return {};
        };
        const bool isRecorded = TDW_TRY(object.boolean("recorded")).value_or(false);
        TDW_TRY(
            read("lockdown", kGlobalDomain, isRecorded ? Dictionary() : defaultLockdownValues()));
        TDW_TRY(read("battery", kBatteryDomain, defaultBatteryValues()));
        TDW_TRY(read("wireless", kWirelessDomain, defaultWirelessValues()));
        if (const Json* json = object.take("domains")) {
            JsonObject others = TDW_TRY(JsonObject::open(*json, object.pathOf("domains")));
            for (const auto& [domain, values] : json->items()) {
                domains[domain]
                    = TDW_TRY(dictionaryFromJson(values, others.pathOf(domain), m_directory));
            }
        }
        return domains;
    }

    /// Values beside the defaults or in their place; null takes one away. What was recorded from a
    /// device stands alone.
    Result<Dictionary> withDefaults(Json json, const std::string& path, Dictionary defaults) const
    {
        const bool isRecorded = json.is_object() && json.contains("$plist");
        for (auto entry = json.begin(); json.is_object() && entry != json.end();) {
            if (entry->is_null()) {
                defaults.remove(entry.key());
                entry = json.erase(entry);
            } else {
                ++entry;
            }
        }
        Dictionary values = TDW_TRY(dictionaryFromJson(json, path, m_directory));
        if (isRecorded)
            return values;
        for (const auto& [key, value] : values)
            defaults.set(key, value);
        return defaults;
    }

    Result<void> readTrust(JsonObject& object, DeviceDescription& device)
    {
        static constexpr std::string_view kStates[] = { "paired", "unpaired" };
        device.isPaired = TDW_TRY(object.word("state", kStates)).value_or(0) == 0;
        const auto trust = TDW_TRY(object.word("trust", kTrustNames));
        device.trust = static_cast<Trust>(trust.value_or(0));
        device.acceptAfter = TDW_TRY(object.number("acceptAfter", 1));
        device.reconnectsAfterTrust
            = TDW_TRY(object.boolean("reconnectAfterTrust")).value_or(device.trust == Trust::Asks);
        return {};
    }

    static Result<std::optional<std::vector<std::string>>> readPublicKeys(JsonObject& object)
    {
        if (!object.take("publicKeys"))
            return std::optional<std::vector<std::string>>();
        std::vector<std::string> keys;
        for (const Json* item : TDW_TRY(object.array("publicKeys"))) {
            const auto* key = item->get_ptr<const std::string*>();
            if (!key)
                return simulatorError(
                    object.pathOf("publicKeys") + ": " + jsonText(*item) + " is not a string");
            keys.push_back(*key);
        }
        return std::optional(std::move(keys));
    }

    static Result<std::optional<PictureSize>> readWallpaperSize(JsonObject& object)
    {
        const Json* json = object.take("wallpaperSize");
        if (!json)
            return std::optional<PictureSize>();
        JsonObject size = TDW_TRY(JsonObject::open(*json, object.pathOf("wallpaperSize")));
        PictureSize result;
        for (const auto& [key, length] :
            { std::pair("width", &result.width), std::pair("height", &result.height) }) {
            const auto number = TDW_TRY(size.number(key, 1));
            if (!number || *number > kLongestPictureSide)
                return simulatorError(size.pathOf(key) + ": a picture has 1 to "
                    + std::to_string(kLongestPictureSide) + " pixels there");
            *length = *number;
        }
        TDW_TRY(size.refuseOtherKeys());
        return std::optional(result);
    }

    Result<std::optional<Data>> readWallpaper(JsonObject& object)
    {
        const auto name = TDW_TRY(object.string("wallpaper"));
        if (!name)
            return std::optional<Data>();
        auto content = readTextFile(m_directory / *name);
        if (!content) {
            return simulatorError(
                object.pathOf("wallpaper") + ": " + content.error().failureReason());
        }
        const auto bytes = std::as_bytes(std::span(*content));
        return std::optional(Data(bytes.begin(), bytes.end()));
    }

    Result<CompanionDescription> readCompanion(const Json& json, const std::string& path)
    {
        JsonObject object = TDW_TRY(JsonObject::open(json, path));
        CompanionDescription companion;
        companion.udid = TDW_TRY(object.requiredString("udid"));
        if (const Json* values = object.take("values"))
            companion.values
                = TDW_TRY(dictionaryFromJson(*values, object.pathOf("values"), m_directory));
        if (const Json* errors = object.take("errors"))
            companion.errors
                = TDW_TRY(dictionaryFromJson(*errors, object.pathOf("errors"), m_directory));
        TDW_TRY(object.refuseOtherKeys());
        return companion;
    }

    Result<std::vector<Fault>> readFaults(
        JsonObject& object, const std::optional<std::string>& device)
    {
        std::vector<Fault> faults;
        for (const Json* item : TDW_TRY(object.array("faults"))) {
            const std::string path = object.pathOf("faults[" + std::to_string(faults.size()) + "]");
            Fault fault = TDW_TRY(faultFromJson(*item, path, m_directory));
            if (device)
                fault.device = device;
            faults.push_back(std::move(fault));
        }
        return faults;
    }

    std::filesystem::path m_directory;
    std::vector<Fault> m_deviceFaults;
};

} // namespace

AddressLayout defaultAddressLayout()
{
    return TIDEWELL_DEVICE_LIBRARY_GENERATION >= 13 ? AddressLayout::Linux : AddressLayout::Bsd;
}

Result<Scenario> loadScenario(const std::filesystem::path& file)
{
    const std::string text = TDW_TRY(readTextFile(file));
    auto scenario = scenarioFromText(text, file.parent_path());
    if (!scenario)
        return simulatorError(file.string() + ": " + scenario.error().failureReason());
    return *std::move(scenario);
}

Result<Scenario> scenarioFromText(std::string_view text, const std::filesystem::path& directory)
{
    const Json json = TDW_TRY(parseJson(text));
    return ScenarioReader(directory).read(json);
}

bool isDeviceIdentifier(std::string_view text)
{
    return text.size() >= 24 && text.size() <= 40
        && text.find_first_not_of("0123456789abcdefABCDEF-") == std::string_view::npos;
}

} // namespace tdw::simulator
