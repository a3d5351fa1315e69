#include "Model/Scenario.h"

#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace tdw::simulator;
using namespace matchers;

namespace {

std::string withDevice(const std::string& more)
{
    return R"({"devices": [{"udid": "00008130-00FACADE0001001C")" + more + "}]}";
}

} // namespace

TEST(Scenario, SaysWhereItIsWrongAndWhatStandsThere)
{
    const std::pair<std::string, std::string> rows[] = {
        { "{\n \"devices\": [,]}", "line 2, column" },
        { "[]", "the document: [] is not an object" },
        { std::string(200, '['), "nesting deeper" },
        { R"({"device": []})", "device: this key is not known here (known:" },
        { R"({"devices": {}})", "devices: {} is not an array" },
        { R"({"devices": [{}]})", "devices[0].udid: this key is missing" },
        { R"({"devices": [{"udid": "../etc"}]})", R"(devices[0].udid: "../etc" is not)" },
        { withDevice(R"(, "trust": "maybe")"), R"(devices[0].trust: "maybe" is not one of)" },
        { withDevice(R"(, "trust": 1)"), "devices[0].trust: 1 is not one of" },
        { withDevice(R"(, "connections": ["usb", "usb"])"), R"("usb" is not one of usb, network)" },
        { withDevice(R"(, "acceptAfter": -1)"), "devices[0].acceptAfter: -1 is not" },
        { withDevice(R"(, "lockdown": {"A": {"B": null}})"), "devices[0].lockdown.A.B: null" },
        { withDevice(R"(, "lockdown": {"A": {"$hex": "abc"}})"), R"($hex: "abc" cannot)" },
        { withDevice(R"(, "networkAddress": "192.0.2.1")"),
            R"(devices[0].networkAddress: "192.0.2.1" is not an address in 127.0.0.0/8)" },
        { withDevice(R"(, "publicKeys": [1])"), "devices[0].publicKeys: 1 is not a string" },
        { withDevice(R"(, "wallpaperSize": {"width": 9000})"),
            "devices[0].wallpaperSize.width: a picture has 1 to 8192 pixels there" },
        { withDevice(R"(, "battery": [1])"), "devices[0].battery: [1] is not a dictionary" },
        { withDevice(R"(, "lockdown": {"$plist": "none.plist"})"), "none.plist: No such file" },
        { withDevice(R"(, "faults": [{"at": "lockdown", "fault": "absent"}])"),
            R"(devices[0].faults[0].fault: "absent" cannot happen at "lockdown")" },
        { withDevice(R"(, "faults": [{"at": "mux", "fault": "delay"}])"),
            "devices[0].faults[0].milliseconds" },
        { withDevice(R"(, "faults": [{"at": "lockdwn", "fault": "drop"}])"),
            R"(devices[0].faults[0].at: "lockdwn" is not one of mux, lockdown, tls)" },
        { withDevice(R"(, "faults": [{"at": "lockdown", "request": "StartSesion",
            "fault": "drop"}])"),
            R"(devices[0].faults[0].request: "StartSesion" is not one of QueryType, GetValue)" },
        { withDevice(R"(}, {"udid": "00008130-00FACADE0001001C")"), "is there twice" },
    };
    for (const auto& [text, expected] : rows) {
        const auto scenario = scenarioFromText(text, ".");
        ASSERT_FALSE(scenario) << text;
        EXPECT_THAT(scenario.error().failureReason(), HasSubstr(expected));
    }
}

TEST(Scenario, KeepsTheTypesOfRecordedValues)
{
    const TemporaryDirectory directory;
    std::ofstream(directory.path() / "phone.plist")
        << "<plist version=\"1.0\"><dict><key>DieID</key><integer>18446744073709551615</integer>"
           "<key>DeviceName</key><string>Recorded</string></dict></plist>";
    const auto scenario = scenarioFromText(
        withDevice(R"(, "lockdown": {"$plist": "phone.plist", "DeviceName": "Changed",
            "Offset": 7200.0, "Negative": -1, "Key": {"$hex": "00fF"},
            "Day": {"$date": "1970-01-02T00:00:00Z"}})"),
        directory.path());
    ASSERT_TRUE(scenario) << scenario.error().failureReason();
    Dictionary expected { { "DieID", UINT64_MAX }, { "DeviceName", "Changed" },
        { "Offset", 7200.0 }, { "Negative", -1 },
        { "Key", Data { std::byte { 0 }, std::byte { 255 } } },
        { "Day", Date(std::chrono::hours(24)) },
        { "UniqueDeviceID", "00008130-00FACADE0001001C" } };
    EXPECT_EQ(Value(scenario->devices[0].domains.at("")), Value(expected));
}
