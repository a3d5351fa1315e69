#include "EndToEnd/Household.h"
#include "EndToEnd/ToolRun.h"
#include "Platform/Values/PropertyList.h"
#include "Support/Testing.h"

#include <sys/stat.h>

#include <map>
#include <set>

using namespace tdw;
using namespace matchers;

namespace {

const std::string kPlayer = "f1d0c0ffee0123456789abcdef0123456789abcd";

ToolRun record(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "record");
    return tidewell(std::move(arguments), kSimulator);
}

/// Compares what was told with what is told again: the same but for what is replaced, and that by
/// the same everywhere.
class Comparison {
public:
    void compare(const Value& before, const Value& after, const std::string& key)
    {
        SCOPED_TRACE(key);
        ASSERT_EQ(before.type(), after.type());
        if (const Dictionary* values = before.asDictionary()) {
            EXPECT_EQ(values->size(), after.asDictionary()->size());
            for (const auto& [name, value] : *values) {
                ASSERT_NE(after.find(name), nullptr) << name;
                compare(value, *after.find(name), name);
            }
        } else if (const Array* items = before.asArray()) {
            ASSERT_EQ(items->size(), after.asArray()->size());
            for (std::size_t i = 0; i < items->size(); ++i)
                compare((*items)[i], (*after.asArray())[i], key);
        } else if (key == "Image") {
            // Their headers, which hold their sizes.
            const Data& picture = *before.asData();
            EXPECT_TRUE(std::equal(picture.begin(), picture.begin() + 24, after.asData()->begin()));
        } else if (const std::string* text = before.asString(); text && kReplaced.contains(key)) {
            EXPECT_NE(*text, *after.asString());
            EXPECT_EQ(text->size(), after.asString()->size());
            const auto [known, isNew] = m_texts.emplace(*text, *after.asString());
            EXPECT_EQ(known->second, *after.asString());
            m_replaced += isNew ? 1 : 0;
        } else if (key != "date") {
            EXPECT_EQ(before, after);
            ++m_equal;
        }
    }

    int equal() const { return m_equal; }
    int replaced() const { return m_replaced; }

private:
    const std::set<std::string> kReplaced { "UDID", "udid", "address", "DeviceName", "SerialNumber",
        "WiFiAddress", "BluetoothAddress", "CompanionDeviceIdentifiers", "WirelessBuddyID" };
    std::map<std::string, std::string> m_texts;
    int m_equal = 0;
    int m_replaced = 0;
};

/// How often devices were asked to trust this host.
std::ptrdiff_t pairings(const SimulatedDevices& devices)
{
    const std::string log
        = devices.control(R"({"command":"log","at":"lockdown","request":"Pair"})");
    return std::count(log.begin(), log.end(), '{');
}

/// The household, and a device on the network alone that answers as old systems did.
std::string householdWithAnOldPlayer()
{
    const std::string begin = "\"devices\": [";
    std::string text = contentsOf(kBuild / "share/tidewell/scenarios/household.json");
    return text.insert(text.find(begin) + begin.size(),
        R"({"udid": ")" + kPlayer
            + R"(", "connections": ["network"], "sessionTLS": false, "resultReplies": true, "lockdown": {)"
              R"("DeviceClass": "iPod", "ProductVersion": "16.7", "WiFiAddress": null}},)");
}

/// What every server that reads says, as it says it.
std::vector<Value> everyAnswer()
{
    std::vector<Value> answers;
    const auto ask = [&](const std::string& server, std::vector<std::string> arguments) {
        const ServerAnswer answer = SimulatedDevices::run(server, std::move(arguments));
        answers.push_back(*decodePropertyList(std::as_bytes(std::span(answer.output))));
    };
    ask("tdw_list", {});
    std::set<std::string> seen;
    for (const Value& device : *answers.front().dictionaryAt("response")->arrayAt("Devices")) {
        const std::string udid = *device.stringAt("UDID");
        if (!seen.insert(udid).second)
            continue;
        ask("tdw_info", { udid, "0", "--include-companion-identifiers" });
        ask("tdw_info", { udid, "0", "--never-pair" });
        for (const char* server : { "tdw_battery", "tdw_companion", "tdw_companion_battery" })
            ask(server, { udid, "0" });
        ask("tdw_wallpaper", { udid, "0", "0" });
        ask("tdw_wallpaper", { udid, "0", "1", "300" });
    }
    return answers;
}

} // namespace

TEST(Recording, OfAHouseholdAnswersEveryServerAsTheDevicesDid)
{
    std::vector<Value> before;
    std::string scenario;
    {
        const SimulatedDevices devices(householdWithAnOldPlayer());
        const std::string player = R"("device":")" + kPlayer + R"(",)";
        const std::string refused = R"("fault":"error","error":)";
        const std::string faults[] = {
            refused + R"("GetProhibited","at":"lockdown","request":"GetValue","key":"DeviceColor")",
            refused + R"("GetProhibited",)" + player
                + R"("at":"lockdown","request":"GetValue","domain":"com.apple.mobile.battery")",
            refused + R"("ServiceProhibited",)" + player
                + R"("at":"lockdown","request":"StartService","service":"com.apple.companion_proxy")",
            refused + R"("TimeoutReply","at":"com.apple.companion_proxy",)"
                + R"("request":"GetValueFromRegistry","key":"BatteryIsCharging")",
            player + R"("fault":"drop","at":"com.apple.springboardservices",)"
                + R"("request":"getWallpaperPreviewImage")",
        };
        for (const std::string& fault : faults)
            devices.control(R"({"command":"inject-fault",)" + fault + "}");
        devices.control(R"({"command":"set-value","device":")" + kPhone
            + R"(","domain":"com.apple.mobile.wireless_lockdown","key":"WirelessBuddyID",)"
              R"("value":"9D4E7B52-0C61-4F1A-B8E3-7A2C5D9F1E60"})");
        before = everyAnswer();
        const auto asked = pairings(devices);
        // No wait of a device is as long as that of a whole machine under load.
        const ToolRun run = record({ "--all", "--wallpaper", "--timeout", "60", "-o", "-" });
        ASSERT_EQ(run.termination, (Termination { 0, false })) << run.standardError;
        EXPECT_THAT(
            run.standardError, HasSubstr(kLockedTablet + ": only what it tells every host"));
        EXPECT_THAT(run.standardError, HasSubstr(kStranger + ": only what it tells every host"));
        EXPECT_THAT(run.standardError, HasSubstr("4 devices, "));
        scenario = run.output;
        EXPECT_EQ(pairings(devices), asked) << "no device asks its user";
    }
    const SimulatedDevices devices(scenario);
    const std::vector<Value> after = everyAnswer();
    ASSERT_EQ(before.size(), after.size());
    Comparison comparison;
    for (std::size_t i = 0; i < before.size(); ++i)
        comparison.compare(before[i], after[i], "answer " + std::to_string(i));
    EXPECT_GT(comparison.equal(), 60);
    EXPECT_GT(comparison.replaced(), 10);
    for (const std::string& secret :
        { kPhone, kWatch, std::string("Robin"), std::string("TWSIM1") })
        EXPECT_EQ(scenario.find(secret), std::string::npos) << secret;
}

TEST(Recording, ThatFailsSaysWhyAndLeavesNothingBehind)
{
    const SimulatedDevices devices;
    const auto folder = devices.directory() / "recordings";
    std::filesystem::create_directory(folder);
    const std::string file = folder / "phone.json";
    struct Row {
        std::string fault;
        std::vector<std::string> arguments;
        std::string expected;
    };
    const auto silentAt = [](const std::string& place) {
        return R"("fault":"hang",)" + place;
    };
    const std::string service = R"("at":"com.apple.springboardservices")";
    const Row rows[] = {
        { "", {}, "give the UDIDs of the devices to record, or --all" },
        { "", { "../phone" }, "\"../phone\" is not a device identifier" },
        { "", { kWatch }, "there is no device " + kWatch },
        { "", { kStranger },
            kStranger + " cannot be recorded: this computer is not paired with it" },
        { "", { kLockedTablet }, kLockedTablet + " cannot be recorded: it is locked" },
        { silentAt(R"("at":"mux")"), { kPhone }, "the multiplexer was silent for 3 s at the list" },
        // A release of the device library asks for the type as part of the connection.
        { silentAt(R"("at":"lockdown","request":"QueryType")"), { kPhone },
            "was silent for 3 s at" },
        { silentAt(R"("at":"tls")"), { kPhone }, "3 s at its session" },
        { silentAt(R"("at":"lockdown","domain":"com.apple.mobile.battery")"), { kPhone },
            "3 s at com.apple.mobile.battery" },
        { silentAt(service), { kPhone }, "3 s at how it is held" },
        { R"("fault":"absent","at":"mux")", { kPhone }, "no list of devices; is usbmuxd running?" },
        { R"("fault":"drop","at":"tls")", { kPhone }, "it may have forgotten this computer" },
        { R"("fault":"drop","at":"lockdown","domain":"com.apple.fairplay")", { kPhone },
            kPhone + " is gone: its connection ended at com.apple.fairplay" },
        { R"("fault":"detach","request":"GetDeviceRegistry","at":"com.apple.companion_proxy")",
            { kPhone }, kPhone + " is gone" },
        { R"("fault":"not-a-dictionary","at":"lockdown","request":"GetValue")", { kPhone },
            kPhone + " makes no sense" },
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.expected);
        if (!row.fault.empty())
            devices.inject(row.fault);
        const bool isSilence = row.fault.find("hang") != std::string::npos;
        std::vector<std::string> arguments { "--timeout", isSilence ? "3" : "60", "-o", file };
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const ToolRun run = record(std::move(arguments));
        EXPECT_EQ(run.termination, (Termination { 1, false }));
        EXPECT_THAT(run.standardError, HasSubstr(row.expected));
        EXPECT_THAT(std::vector(std::filesystem::directory_iterator(folder), {}), IsEmpty());
        devices.clearFaults();
    }
}

TEST(Recording, IsWrittenWholeOrNotAtAll)
{
    const SimulatedDevices devices;
    const auto folder = devices.directory() / "recordings";
    std::filesystem::create_directory(folder);
    const std::string file = folder / "phone.json";
    const auto inShell = [&](const std::string& before, const std::string& more) {
        return tidewell(
            { "-c", before + "exec " + kSimulator + " record " + kPhone + " " + more }, "/bin/sh");
    };
    EXPECT_THAT(inShell("", "-o - >/dev/full").standardError, HasSubstr("No space left on device"));
    EXPECT_THAT(inShell("", "-o /dev/full").standardError, HasSubstr("no ordinary file"));
    EXPECT_THAT(inShell("", "-o /nowhere/phone.json").standardError, HasSubstr("No such file"));
    EXPECT_THAT(inShell("ulimit -f 1; ", "-o " + file).standardError, HasSubstr("File too large"));
    EXPECT_THAT(std::vector(std::filesystem::directory_iterator(folder), {}), IsEmpty());

    EXPECT_EQ(record({ kPhone, "-o", file }).termination, (Termination { 0, false }));
    struct stat status { };
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    const std::string first = contentsOf(file);
    EXPECT_THAT(record({ kPhone, "-o", file }).standardError, HasSubstr("is there already"));
    EXPECT_EQ(contentsOf(file), first);
    EXPECT_EQ(record({ kPhone, "-o", file, "--force" }).termination, (Termination { 0, false }));
    EXPECT_NE(contentsOf(file), first);
}
