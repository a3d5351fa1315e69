#include "EndToEnd/DeviceRows.h"
#include "Interfaces/TDWResponse.h"

#include <libimobiledevice/lockdown.h>

using namespace tdw;
using namespace matchers;

namespace {

using Changes = std::initializer_list<std::pair<std::string_view, std::optional<Value>>>;

/// A copy with values set, or removed where there is none.
Dictionary with(Dictionary values, Changes changes)
{
    for (const auto& [key, value] : changes)
        value ? values.set(key, *value) : static_cast<void>(values.remove(key));
    return values;
}

Dictionary unpaired(std::uint32_t state)
{
    return Dictionary { { "DeviceName", "Simulated iPhone" }, { "DeviceClass", "iPhone" },
        { "HardwareModel", "D83AP" }, { "ProductType", "iPhone16,1" }, { "DeviceColor", "1" },
        { "WiFiAddress", "02:00:5e:10:00:99" }, { "ProductName", "iPhone OS" },
        { "ProductVersion", "18.5" }, { "BuildVersion", "22F76" },
        { "EnableWifiConnections", false }, { "PairingState", state } };
}

Dictionary paired(Changes changes = {})
{
    static const Dictionary kUsual = with(unpaired(4),
        { { "BluetoothAddress", kUsualAddress }, { "SerialNumber", "TWSIM0000Z" },
            { "Battery", Dictionary { { "BatteryCurrentCapacity", 80 } } },
            { "EnableWifiConnections", true }, { "WirelessBuddyID", "buddy" } });
    return with(kUsual, changes);
}

Dictionary pairedWithWatches(Array identifiers)
{
    return paired({ { "CompanionDeviceIdentifiers", std::move(identifiers) } });
}

Error refused(int code)
{
    return TDWErrorCreate("lockdownd_client_new", code);
}

Error unreadable(std::string_view key, int code = LOCKDOWN_E_MISSING_VALUE)
{
    setErrorDetail(key);
    return TDWErrorCreate("lockdownd_get_value", code);
}

Error noWireless(const std::string& key)
{
    return TDWErrorCreateWithMessage(key + " wireless domain key had missing or invalid value", -1);
}

struct Row {
    std::string situation;
    std::string device;
    std::vector<std::string> arguments;
    Dictionary payload;
    std::vector<Error> warnings {};
    std::optional<Error> batteryError {};
    const char* address = kUsualAddress;
};

void expectInformation(const SimulatedDevices& devices, Row row, std::size_t index)
{
    row.arguments.insert(row.arguments.begin(), udidOf(index));
    const auto answer = devices.run("tdw_info", row.arguments);
    ASSERT_TRUE(answer.payload) << answer.output;
    EXPECT_EQ(answer.warnings(), row.warnings) << answer.output;
    const auto error = answer["BatteryError"];
    EXPECT_EQ(error ? std::optional(TDWErrorParse(*error)) : std::nullopt, row.batteryError);
    const auto rest
        = with(*answer.payload->asDictionary(), { { "warnings", {} }, { "BatteryError", {} } });
    EXPECT_EQ(rest, row.payload) << answer.output;
    EXPECT_EQ(answer.deviceID, identity(index, row.address));
    EXPECT_EQ(answer.status, 0);
    if (row.arguments.back() == kTDWDeviceInfoServerNeverPairFlag) {
        EXPECT_THAT(devices.control("log", { { "request", "Pair" }, { "device", udidOf(index) } }),
            HasSubstr(R"("entries":[])"))
            << "nothing asks the user";
    }
}

} // namespace

TEST(DeviceInfoServer, SaysHowFarTheDeviceTrustsThisHost)
{
    const std::string unpairedAnd = R"("state": "unpaired", "trust": )";
    const auto refusing = [](const std::string& error) {
        return faulty(R"("error", "request": "StartSession", "error": ")" + error + '"');
    };
    const std::vector<Row> states {
        { "trusts", "", {}, paired() },
        { "trusts from the first word on", unpairedAnd + R"("trusts")", {}, paired() },
        { "asks", unpairedAnd + R"("asks")", {}, unpaired(1), { refused(-19) } },
        { "denies", unpairedAnd + R"("denies")", {}, unpaired(2), { refused(-18) } },
        { "locked", R"("trust": "locked")", {}, unpaired(3), { refused(-17) } },
        { "escrow-locked", R"("trust": "escrow-locked")", {}, unpaired(3), { refused(-35) } },
        { "lost", unpairedAnd + R"("find-my")", {}, unpaired(3), { refused(-37) } },
        { "managed", unpairedAnd + R"("managed")", {}, unpaired(0), { refused(-38) } },
        { "challenging", unpairedAnd + R"("managed-challenge")", {}, unpaired(0),
            { refused(-39) } },
        { "has no record", refusing("MissingPairRecord"), {}, unpaired(0), { refused(-29) } },
        { "has another record", refusing("InvalidPairRecord"), {}, unpaired(0), { refused(-31) } },
    };
    setErrorDetail("Lookup over network failed, fallback to USB attempted.");
    const Error fellBack = TDWErrorCreate("idevice_new_with_options", -3);
    std::vector<Row> rows {
        { "trusts, found in the second place", "", { "2" }, paired(), { fellBack } },
        { "denies, in the second place", states[3].device, { "2" }, unpaired(2),
            { fellBack, refused(-18) } },
        { "locked, and asked for more than it may tell", R"("trust": "locked")",
            { "--include-companion-identifiers" }, unpaired(3), { refused(-17) } },
        { "would ask, but is not to", unpairedAnd + R"("asks")", { "1", "--never-pair" },
            unpaired(0), { refused(-29) } },
        { "has a record already", "", { "2", "--never-pair" }, paired(), { fellBack } },
        { "trusts over the network", R"("connections": ["network"])", { "2" }, paired() },
        { "locked, and tells nothing over the network",
            R"("connections": ["network"], "trust": "locked")", { "2" },
            Dictionary { { "EnableWifiConnections", false }, { "PairingState", 3U } },
            { refused(-17), unreadable("DeviceName", -13), unreadable("DeviceClass", -13),
                unreadable("HardwareModel", -13), unreadable("ProductType", -13),
                unreadable("DeviceColor", -13) },
            {}, "" },
    };
    for (Row row : states) {
        row.arguments = { "1" };
        rows.push_back(std::move(row));
    }
    forEachRow(rows, expectInformation);
}

TEST(DeviceInfoServer, TellsWhatItCanReadAndWarnsOfTheRest)
{
    const std::string prohibit
        = R"("error", "error": "GetProhibited", "domain": "com.apple.mobile.)";
    const auto prohibited = TDWErrorCreate("lockdownd_get_value", LOCKDOWN_E_GET_PROHIBITED);
    const auto disconnected = TDWErrorCreate("lockdownd_get_value", LOCKDOWN_E_MUX_ERROR);
    const auto noWifi = noWireless("EnableWifiConnections");
    const auto noBuddy = noWireless("WirelessBuddyID");
    const auto noWatches = [](int code) {
        return TDWErrorCreate("_TDWFetchCompanionDeviceIdentifiers", code);
    };
    const std::vector<std::string> watches { "1", "--include-companion-identifiers" };
    const std::vector<Row> rows {
        { "few values, and one that is no string",
            R"("lockdown": {"HardwarePlatform": "t8130", "ReleaseType": "Beta", "SerialNumber": 7,
                "BluetoothAddress": null, "BuildVersion": null, "DeviceClass": null,
                "DeviceColor": null, "DeviceName": null, "HardwareModel": null,
                "ProductName": null, "ProductType": null, "ProductVersion": null,
                "WiFiAddress": null, "ActivationState": null, "TimeZone": null})",
            {},
            { { "HardwarePlatform", "t8130" }, { "ReleaseType", "Beta" }, { "PairingState", 4 },
                { "Battery", *paired().find("Battery") }, { "EnableWifiConnections", true },
                { "WirelessBuddyID", "buddy" } },
            { unreadable("DeviceName"), unreadable("DeviceClass"), unreadable("HardwareModel"),
                unreadable("ProductType"), unreadable("DeviceColor"),
                unreadable("BluetoothAddress") },
            {}, "" },
        { "no battery", faulty(prohibit + R"(battery")"), {}, paired({ { "Battery", {} } }), {},
            prohibited },
        { "no wireless domain", faulty(prohibit + R"(wireless_lockdown")"), {},
            paired({ { "EnableWifiConnections", false }, { "WirelessBuddyID", {} } }),
            { prohibited, noWifi, noBuddy } },
        { "wireless values of other types",
            R"("wireless": {"EnableWifiConnections": "true", "WirelessBuddyID": 5})", {},
            paired({ { "EnableWifiConnections", false }, { "WirelessBuddyID", {} } }),
            { noWifi, noBuddy } },
        { "a number for a boolean", R"("wireless": {"EnableWifiConnections": 2})", {},
            paired({ { "WirelessBuddyID", {} } }), { noBuddy } },
        { "watches, asked for where the connection type belongs",
            R"("connections": ["network"], "watches": [{"udid": "w2"}, {"udid": "w1"}])",
            { watches[1] }, pairedWithWatches({ "w2", "w1" }) },
        { "watches that are not asked for", R"("watches": [{"udid": "w1"}])",
            { "0", "--include-companion-identifier" }, paired() },
        { "no watch", "", watches, pairedWithWatches({}) },
        { "a companion service that does not start",
            faulty(R"("error", "error": "InvalidService", "request": "StartService")"), watches,
            pairedWithWatches({}), { noWatches(-256) } },
        { "a companion service that goes away", faulty(R"("drop")", "com.apple.companion_proxy"),
            watches, pairedWithWatches({}), { noWatches(kRegistryAtTheEnd) } },
        { "a registry that is no list",
            faulty(R"("wrong-type", "replyKey": "PairedDevicesArray", "value": "w1")",
                "com.apple.companion_proxy")
                + R"(, "watches": [{"udid": "w1"}])",
            watches, pairedWithWatches({}), { noWatches(-2) } },
        { "a registry that is refused",
            faulty(R"("error", "error": "ServiceProhibited")", "com.apple.companion_proxy"),
            watches, pairedWithWatches({}), { noWatches(-100) } },
        { "a companion service that is garbled",
            faulty(R"("garbage")", "com.apple.companion_proxy"), watches, pairedWithWatches({}),
            { noWatches(-2) } },
        { "a connection that ends half way", faulty(R"("drop", "key": "SerialNumber")"), {},
            paired({ { "SerialNumber", {} }, { "ProductName", {} }, { "ProductVersion", {} },
                { "BuildVersion", {} }, { "Battery", {} }, { "WirelessBuddyID", {} },
                { "EnableWifiConnections", false } }),
            { unreadable("SerialNumber", kReadAtTheEnd), disconnected, noWifi, noBuddy },
            disconnected, "" },
        { "nonsense half way", faulty(R"("garbage", "key": "SerialNumber")"), {},
            paired({ { "SerialNumber", {} } }), { unreadable("SerialNumber", -3) } },
    };
    forEachRow(rows, expectInformation);
}
