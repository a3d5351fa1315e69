#include "EndToEnd/DeviceRows.h"
#include "Support/Testing.h"

#include <libimobiledevice/lockdown.h>

#include <sys/resource.h>

#include <variant>

using namespace tdw;
using namespace std::chrono_literals;
using namespace matchers;

namespace {

using Command = std::vector<std::string>;

const std::string kUdid = "UDID"; ///< stands for the UDID of the row's device
const std::string kWireless = "com.apple.mobile.wireless_lockdown";
const std::string kWifi = "EnableWifiConnections";
const std::string kBuddy = "WirelessBuddyID";

const Command kInfo { "tdw_info", kUdid };
const Command kBattery { "tdw_battery", kUdid };
const Command kConfig { "tdw_config", kUdid, kWireless, kWifi, "1" };
const Command kPair { "tdw_pairing", "pair", kUdid, "ignored" };
const Command kUnpair { "tdw_pairing", "unpair", kUdid };

const Command kWatches { "tdw_companion_battery", kUdid };
const Command kWallpaper { "tdw_wallpaper", kUdid };

const std::string kCompanionProxy = "com.apple.companion_proxy";
const std::string kSpringboard = "com.apple.springboardservices";
const std::string kNetwork = R"("connections": ["network"])";
const std::string kLocked = R"("trust": "locked")";
const std::string kUnpaired = R"("state": "unpaired", "trust": )";

std::string refusing(const std::string& request, const std::string& error)
{
    return faulty(R"("error", "request": ")" + request + R"(", "error": ")" + error + '"');
}

std::string faultyBattery(const std::string& fault)
{
    return faulty(fault + R"(, "domain": "com.apple.mobile.battery")");
}

struct Row {
    const char* situation;
    std::string device;
    Command command;
    std::variant<Value, Error> outcome;
    int code = 0; ///< the status, before the system has cut it
    const char* address = kUsualAddress;
    std::string standardError {};
};

ServerAnswer expectOutcome(const SimulatedDevices& devices, Row row, std::size_t index)
{
    std::replace(row.command.begin(), row.command.end(), kUdid, udidOf(index));
    const std::string server = row.command[0];
    if (server == "tdw_pairing")
        row.standardError
            = "Requested action " + row.command[1] + " for device " + row.command[2] + "\n";
    const auto answer = devices.run(server, { row.command.begin() + 1, row.command.end() });
    std::optional<Value> record;
    if (const auto* payload = std::get_if<Value>(&row.outcome)) {
        EXPECT_EQ(answer.payload, *payload) << answer.output;
        record = server == "tdw_pairing" ? record : identity(index, row.address);
    } else {
        EXPECT_EQ(answer.error, std::get<Error>(row.outcome)) << answer.output;
    }
    EXPECT_EQ(answer.deviceID, record);
    EXPECT_EQ(answer.status, row.code & 0xff);
    EXPECT_THAT(answer.standardError, HasSubstr(row.standardError));
    EXPECT_EQ(answer.standardError.empty(), row.standardError.empty()) << answer.standardError;
    return answer;
}

Value state(std::uint32_t number)
{
    return Dictionary { { kTDWDeviceInfoPairingState, number } };
}

/// The processor time of all servers that have ended.
std::chrono::seconds processorTime()
{
    rusage usage {};
    getrusage(RUSAGE_CHILDREN, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec);
}

} // namespace

TEST(BatteryServer, SendsTheDomainAsItIs)
{
    const std::string battery = R"("battery": {"BatteryCurrentCapacity": 255, "Odd": [-5, 1.5]})";
    const Value values
        = Dictionary { { "BatteryCurrentCapacity", 255 }, { "Odd", Array { -5, 1.5 } } };
    const std::vector<Row> rows {
        { "over USB", battery, { "tdw_battery", kUdid, "2" }, values },
        { "over the network", battery + ", " + kNetwork, { "tdw_battery", kUdid, "1" }, values },
        { "no address",
            battery + R"(, "lockdown": {"WiFiAddress": null, "BluetoothAddress": null})", kBattery,
            values, 0, "" },
        { "no dictionary", faultyBattery(R"("wrong-type", "value": ["full"])"), kBattery,
            Value(Array { "full" }), 0, kUsualAddress,
            "Lockdown domain data should be a dictionary for domain \"com.apple.mobile.battery\"" },
        { "dates that stand for never",
            R"("battery": {"Distant": {"$date": "4001-01-01T00:00:00Z"},
                "First": {"$date": "0001-01-01T00:00:00Z"},
                "Last": {"$date": "9999-12-31T23:59:59Z"}})",
            kBattery,
            Value(Dictionary { { "Distant", Date(64092211200s) }, { "First", Date(-62135596800s) },
                { "Last", Date(253402300799s) } }) },
    };
    forEachRow(rows, expectOutcome);
}

TEST(ConfigServer, WritesTheValueThatTheDeviceThenHas)
{
    const std::string device = R"("wireless": {"EnableWifiConnections": "neither"})";
    const Value done = Dictionary();
    // The situation is what software written elsewhere reads afterwards.
    const std::vector<Row> rows {
        { "true", device, { "tdw_config", kUdid, kWireless, kWifi, "1", "ignored" }, done },
        { "false", device, { "tdw_config", kUdid, kWireless, kWifi, "0" }, done },
        { "true", device, { "tdw_config", kUdid, kWireless, kWifi, "10" }, done },
        { "false", device, { "tdw_config", kUdid, kWireless, kWifi, "0x" }, done },
        { "2 Büro", device, { "tdw_config", kUdid, kWireless, kBuddy, "2 Büro" }, done },
        { "", "", { "tdw_config", kUdid, kWireless, kBuddy, "" }, done },
    };
    forEachRow(rows, [](const SimulatedDevices& devices, const Row& row, std::size_t index) {
        expectOutcome(devices, row, index);
        const Command tool { "-u", udidOf(index), "-q", kWireless, "-k", row.command[3] };
        EXPECT_EQ(runToEnd("/usr/bin/ideviceinfo", tool).output, row.situation + std::string("\n"));
        const std::string type = row.command[3] == kWifi ? R"("Value":)" : R"("Value":")";
        EXPECT_THAT(devices.log(R"("request":"SetValue")"), HasSubstr(type + row.situation));
    });
}

TEST(PairingServer, AnswersWithThePairingState)
{
    const std::vector<Row> rows {
        { "trusts", kUnpaired + R"("trusts")", kPair, state(4) },
        { "trusts over the cable only", kUnpaired + R"("usb-only")", kPair, state(4) },
        { "has forgotten this host", R"("trust": "forgot-host")", kPair, state(4) },
        { "denies", kUnpaired + R"("denies")", kPair, state(2), -18 },
        { "locked", kLocked, kPair, state(3), -17 },
        { "managed", kUnpaired + R"("managed-challenge")", kPair, state(0), -39 },
        { "lost", kUnpaired + R"("find-my")", kPair, state(3), -37 },
        { "has no record", refusing("Pair", "MissingPairRecord"), kPair, state(0), -29 },
        { "locked afterwards", refusing("StartSession", "EscrowLocked"), kPair, state(3), -35 },
    };
    forEachRow(rows, expectOutcome);
}

TEST(PairingServer, FollowsTheUserAtTheDevice)
{
    const Row asks { "asks", kUnpaired + R"("asks", "reconnectAfterTrust": false)", kPair, state(1),
        -19 };
    forEachRow<Row>({ asks }, [](const SimulatedDevices& devices, const Row& row, std::size_t) {
        expectOutcome(devices, row, 0);
        devices.control("answer-trust", { { "answer", "accept" }, { "device", udidOf(0) } });
        expectOutcome(devices, { "accepted", "", kPair, state(4) }, 0);
        EXPECT_THAT(runToEnd("/usr/bin/idevicepair", { "-u", udidOf(0), "validate" }).output,
            HasSubstr("SUCCESS"));
        expectOutcome(devices, { "unpaired", "", kUnpair, state(5) }, 0);
        const auto gone = TDWErrorCreate("lockdownd_unpair", kNoPairRecord);
        expectOutcome(devices, { "gone", "", kUnpair, gone, kNoPairRecord }, 0);
        devices.control("answer-trust", { { "answer", "deny" }, { "device", udidOf(0) } });
        expectOutcome(devices, { "denied", "", kPair, state(2), -18 }, 0);
    });
}

TEST(DeviceServers, EndWithTheErrorOfTheStepThatFailed)
{
    const auto open = TDWErrorCreate("idevice_new_with_options", -3);
    const auto connect = [](int code) {
        return TDWErrorCreate("lockdownd_client_new", code);
    };
    const auto read = [](int code) {
        return TDWErrorCreate("lockdownd_get_value", code);
    };
    const auto noNode = TDWErrorCreate("TDWServerGetFoundationObjectFromRawPlist", -1);
    const std::string forgetful = R"("trust": "forgot-host")";
    const std::vector<Row> rows {
        { "not there by USB", kNetwork, { "tdw_info", kUdid, "1" }, open, -3 },
        { "not there by USB", kNetwork, kConfig, open, -3 },
        { "not there by USB", kNetwork, kPair, open, -3 },
        { "not there by USB", kNetwork, kUnpair, open, -3 },
        { "not there", R"("connections": [])", { "tdw_info", kUdid, "2" }, open, -3 },
        { "not there", R"("connections": [])", kBattery, open, -3 },
        { "forgot this host", forgetful, kInfo, connect(-21), -21 },
        { "unknown to it over the network", kUnpaired + R"("trusts", )" + kNetwork, kInfo,
            connect(kUnknownOverTheNetwork), kUnknownOverTheNetwork },
        { "locked", kLocked, kBattery, connect(-17), -17 },
        { "locked", kLocked, kConfig, connect(-17), -17 },
        { "goes", faulty(R"("drop", "request": "StartSession")"), kInfo, connect(-3), -3 },
        { "is connected to in half a frame",
            faulty(R"("truncate", "request": "Connect", "bytes": 16)", "mux"), kInfo, connect(-8),
            -8 },
        { "breaks TLS", faulty(R"("drop")", "tls"), kInfo, connect(-5), -5 },
        { "garbles TLS", faulty(R"("garbage")", "tls"), kBattery, connect(-5), -5 },
        { "goes", faultyBattery(R"("detach")"), kBattery, read(kReadAtTheEnd) },
        { "says half of it", faultyBattery(R"("truncate")"), kBattery, read(kReadAtTheEnd) },
        { "says nonsense", faultyBattery(R"("garbage")"), kBattery, read(-3) },
        { "says nothing", faultyBattery(R"("missing-key")"), kBattery, noNode, 0, "", "[ERROR]" },
        { "refuses", refusing("SetValue", "SetProhibited"), kConfig,
            TDWErrorCreate("lockdownd_set_value", LOCKDOWN_E_SET_PROHIBITED),
            LOCKDOWN_E_SET_PROHIBITED },
        { "refuses", refusing("Pair", "MissingHostID"), kPair,
            TDWErrorCreate("lockdownd_pair", LOCKDOWN_E_MISSING_HOST_ID),
            LOCKDOWN_E_MISSING_HOST_ID },
        { "says neither yes nor why not",
            faulty(R"("missing-key", "replyKey": "Request", "request": "Pair")"), kPair,
            TDWErrorCreate("lockdownd_pair", LOCKDOWN_E_PAIRING_FAILED),
            LOCKDOWN_E_PAIRING_FAILED },
        { "forgets at once", refusing("StartSession", "InvalidHostID"), kPair,
            TDWErrorCreate("lockdownd_client_new_with_handshake", -21), -21 },
        { "locked", refusing("Unpair", "PasswordProtected"), kUnpair,
            TDWErrorCreate("lockdownd_unpair", -17), -17 },
    };
    forEachRow(rows, expectOutcome);
}

TEST(DeviceServers, EndAtOnceWhenTheDeviceClosesBetweenRequests)
{
    const struct {
        Command command;
        std::string request;
        std::string at = "lockdown";
    } closings[] = {
        { kBattery, "StartSession" },
        { kBattery, "GetValue" },
        { kInfo, "StartSession" },
        { kInfo, "GetValue" },
        { kConfig, "SetValue" },
        { kPair, "Pair" },
        { kUnpair, "Unpair" },
        { kWatches, "StartService" },
        { kWatches, "GetDeviceRegistry", kCompanionProxy },
        { kWatches, "GetValueFromRegistry", kCompanionProxy },
        { kWallpaper, "getInterfaceOrientation", kSpringboard },
    };
    std::vector<Row> rows;
    for (const auto& closing : closings)
        rows.push_back({ closing.request.c_str(),
            faulty(R"("close-after-reply", "request": ")" + closing.request + '"', closing.at)
                + R"(, "watches": [{"udid": "w", "values": {"BatteryCurrentCapacity": 1}}])",
            closing.command, Value(false) });
    const auto before = processorTime();
    forEachRow(rows, [](const SimulatedDevices& devices, Row row, std::size_t index) {
        std::replace(row.command.begin(), row.command.end(), kUdid, udidOf(index));
        const auto answer
            = devices.run(row.command[0], { row.command.begin() + 1, row.command.end() });
        EXPECT_TRUE(answer.payload || (answer.error && !isServerTimeout(*answer.error)))
            << answer.output;
    });
    EXPECT_LE(processorTime() - before, 6s) << "none sends again and again";
}

TEST(DeviceServers, RefuseWrongArgumentsBeforeTheyOpenTheDevice)
{
    const auto own = [](const char* message) {
        return TDWErrorCreateWithMessage(message, 1);
    };
    const auto noUdid = own("Device UDID must be provided.");
    const auto noSetting = own("Device UDID, lockdown domain, key, and value must be provided.");
    const auto domain = own("Specified domain is not allow-listed.");
    const auto key = own("Specified key is not allow-listed.");
    const auto value = own("Invalid value: must be either 0 or 1.");
    const auto action = TDWErrorCreateWithMessage("Unsupported action", 5);
    const std::pair<Command, Error> refusals[] = {
        { { "tdw_info" }, noUdid },
        { { "tdw_battery" }, noUdid },
        { { "tdw_config", kUdid, kWireless, kBuddy }, noSetting },
        { { "tdw_config", kUdid, "com.apple.mobile.battery", kWifi, "1" }, domain },
        { { "tdw_config", kUdid, kWireless, "EnableWiFiConnections", "1" }, key },
        { { "tdw_config", kUdid, kWireless, "EnableWifiDebugging", "maybe" }, key },
        { { "tdw_config", kUdid, kWireless, "WirelessBuddyID\xff", "x" }, key },
        { { "tdw_config", kUdid, kWireless, kWifi, "2" }, value },
        { { "tdw_config", kUdid, kWireless, kWifi, "true" }, value },
        { { "tdw_config", kUdid, kWireless, kWifi, "" }, value },
        { { "tdw_pairing", "Pair", kUdid }, action },
        { { "tdw_pairing", "pair ", kUdid }, action },
        { { "tdw_pairing", "pair\xff", kUdid }, action },
    };
    std::vector<Row> rows;
    for (const auto& [command, error] : refusals)
        rows.push_back({ "wrong arguments", "", command, error, 1 });
    forEachRow(rows, [](const SimulatedDevices& devices, const Row& row, std::size_t index) {
        expectOutcome(devices, row, index);
        EXPECT_THAT(devices.log(R"("at":"mux")"), HasSubstr(R"("entries":[])"));
    });
    const auto answer = SimulatedDevices::run("tdw_pairing", { "pair" });
    EXPECT_EQ(answer.error, own("Action and device UDID must be provided."));
    EXPECT_EQ(answer.standardError, "");
}

TEST(DeviceServers, AreEndedByTheirClockWhenTheDeviceIsSilent)
{
    const auto hang = [](const std::string& where, const std::string& at = "lockdown") {
        return R"("watches": [{"udid": "w", "values": {"BatteryCurrentCapacity": 1}}], )"
            + faulty(R"("hang")" + where, at);
    };
    const auto timeout = serverTimeoutError();
    const auto before = processorTime();
    const std::vector<Row> rows {
        { "handshake", hang("", "tls"), kBattery, timeout, 1 },
        { "value", hang(R"(, "key": "SerialNumber")"), kInfo, timeout, 1 },
        { "huge answer", faultyBattery(R"("oversize")"), kBattery, timeout, 1 },
        { "writing", hang(R"(, "request": "SetValue")"), kConfig, timeout, 1 },
        { "unpairing", hang(R"(, "request": "Unpair")"), kUnpair, timeout, 1 },
        { "second value of a watch",
            hang(R"(, "request": "GetValueFromRegistry", "nth": 2)", kCompanionProxy), kWatches,
            timeout, 1 },
        { "wallpaper", hang(R"(, "request": "getWallpaperPreviewImage")", kSpringboard), kWallpaper,
            timeout, 1 },
    };
    const auto check = [](const auto& devices, const Row& row, std::size_t index) {
        const auto duration = expectOutcome(devices, row, index).duration;
        const auto clock = row.command[0] == "tdw_pairing" ? 20s : 10s;
        EXPECT_THAT(duration, AllOf(Ge(clock), Le(clock + 20s)));
    };
    forEachRow(rows, check, Order::AtOnce);
    EXPECT_LE(processorTime() - before, 6s) << "they wait, and do not ask again and again";
}

TEST(DeviceServers, HoldAnAnswerBackForAMomentOnly)
{
    const std::string silent = faulty(R"("hang", "request": "StopSession")");
    const Value battery = Dictionary { { kTDWBatteryCurrentCapacity, 80 } };
    const std::vector<Row> rows { { "falls silent after its answer", silent, kBattery, battery } };
    forEachRow(rows, [](const auto& devices, const Row& row, std::size_t index) {
        EXPECT_THAT(expectOutcome(devices, row, index).duration, AllOf(Ge(1s), Le(9s)));
    });
}
