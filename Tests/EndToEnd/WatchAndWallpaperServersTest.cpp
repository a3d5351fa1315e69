#include "EndToEnd/DeviceRows.h"
#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWWallpaper.h"
#include "Server/TDWCompanionServer.h"
#include "Server/TDWWallpaperServer.h"
#include "Server/WallpaperClient.h"

using namespace tdw;
using namespace matchers;

namespace {

struct Row {
    const char* situation;
    std::string device;
    std::optional<Value> devices;
    std::optional<Error> error;
    int status;
};

ServerAnswer expectOutcome(const char* server, const Row& row, std::size_t index)
{
    auto answer = SimulatedDevices::run(server, { udidOf(index), "1" });
    EXPECT_EQ(answer[kTDWDevicesKey], row.devices) << answer.output;
    EXPECT_EQ(answer.error, row.error) << answer.output;
    EXPECT_EQ(answer.status, row.status);
    return answer;
}

/// A watch that tells `values` and nothing else.
std::string watch(const std::string& values, const std::string& more = {})
{
    return R"("watches": [{"udid": "watch-1", "values": {)" + values + "}" + more + "}]";
}

Value entry(const Dictionary& battery)
{
    return Array { Dictionary {
        { kTDWDeviceListItemUDID, "watch-1" }, { kTDWDeviceInfoBattery, battery } } };
}

const std::string kProxy = "com.apple.companion_proxy";
const std::string kSpringboard = "com.apple.springboardservices";

/// The error of a library call, with what was being done.
Error detailed(const char* detail, const char* api, int code)
{
    setErrorDetail(detail);
    return TDWErrorCreate(api, code);
}

} // namespace

TEST(CompanionBatteryServer, TellsWhatEachWatchHasAndEndsWithTheFirstFailure)
{
    const char* read = "companion_proxy_get_value_from_registry";
    const char* start = "companion_proxy_client_start_service";
    const auto wrongValue = [](const std::string& value) {
        return faulty(R"("wrong-type", "replyKey": "RetrievedValueDictionary", "value": )" + value
                + R"(, "request": "GetValueFromRegistry")",
            kProxy);
    };
    const std::vector<Row> rows {
        { "all values", watch(R"("BatteryCurrentCapacity": 83, "BatteryIsCharging": true,
              "ExternalConnected": true, "FullyCharged": false)"),
            entry({ { "BatteryCurrentCapacity", 83 }, { "BatteryIsCharging", true },
                { "ExternalConnected", true }, { "FullyCharged", false } }),
            {}, 0 },
        { "optional values unsupported", watch(R"("BatteryCurrentCapacity": 0)"),
            entry({ { "BatteryCurrentCapacity", 0 } }), {}, 0 },
        { "no watch", R"("connections": ["usb"])", Array {}, {}, 0 },
        { "a slow watch",
            watch(R"("BatteryCurrentCapacity": 5)") + ","
                + faulty(R"("delay", "milliseconds": 400)", kProxy),
            entry({ { "BatteryCurrentCapacity", 5 } }), {}, 0 },
        { "the capacity unsupported", watch(R"("FullyCharged": true)"), {},
            detailed("BatteryCurrentCapacity", read, -101), 155 },
        { "a reply that is no dictionary",
            watch(R"("BatteryCurrentCapacity": 1)") + "," + wrongValue("7"), {},
            TDWErrorCreateWithMessage(
                "Expected companion registry response to be a dictionary.", 1),
            1 },
        { "a reply without the value",
            watch(R"("BatteryCurrentCapacity": 1)") + "," + wrongValue("{}"), {},
            TDWErrorCreateWithMessage("Companion registry response did not contain required "
                                      "property BatteryCurrentCapacity.",
                1),
            1 },
        { "no companion proxy", faulty(R"("error", "error": "InvalidService",
              "request": "StartService")"),
            {}, TDWErrorCreate(start, -256), 0 },
    };
    forEachRow(rows, [](const SimulatedDevices&, const Row& row, std::size_t i) {
        EXPECT_EQ(expectOutcome("tdw_companion_battery", row, i).deviceID, std::nullopt);
    });
}

TEST(CompanionServer, TellsEverythingOfTheWatchesThatAreNamed)
{
    const SimulatedDevices household;
    const std::string phone = "00008130-00FACADE0010001C";
    const std::string known = "00008301-00FACADE00130026";
    const auto answer = SimulatedDevices::run("tdw_companion", { phone, "1", known, known });
    const auto devices = answer[kTDWDevicesKey];
    ASSERT_TRUE(devices) << answer.output;
    ASSERT_EQ(devices->asArray()->size(), 2U);
    const Dictionary& first = *devices->asArray()->front().asDictionary();
    EXPECT_EQ(*first.find(kTDWDeviceInfoPairingState), Value(4));
    EXPECT_EQ(*first.find(kTDWDeviceListItemUDID), Value(known));
    EXPECT_EQ(*first.find("BatteryCurrentCapacity"), Value(83)) << "here and in the battery";
    EXPECT_EQ(*first.find(kTDWDeviceInfoBattery)->asDictionary()->find("BatteryCurrentCapacity"),
        Value(83));

    const std::string log = household.control("log", { { "at", kProxy } });
    EXPECT_EQ(log.find("GetDeviceRegistry"), std::string::npos)
        << "named watches are not looked up";
    EXPECT_EQ(log.find("ReleaseType"), std::string::npos);
    EXPECT_EQ(TDWCompanionKeys().size(), 15U);
    EXPECT_EQ(SimulatedDevices::run("tdw_companion").error,
        TDWErrorCreateWithMessage("Device UDID must be provided.", 1));
}

TEST(WallpaperServer, GivesThePreviewAndAsksForNoMoreThanItWasAsked)
{
    const SimulatedDevices household;
    const std::string phone = "00008130-00FACADE0010001C";
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        { { phone }, R"({"command":"getWallpaperPreviewImage","wallpaperName":"lockscreen"})" },
        { { phone, "1", "1", "320.5" },
            R"({"command":"getWallpaperPreviewImage","wallpaperName":"homescreen","widthPixels":320.5})" },
        { { phone, "1", "letters", "-5" },
            R"({"command":"getWallpaperPreviewImage","wallpaperName":"lockscreen"})" },
    };
    for (const auto& [arguments, request] : cases) {
        const auto answer = SimulatedDevices::run("tdw_wallpaper", arguments);
        ASSERT_TRUE(answer[kTDWWallpaperImage]) << answer.output;
        const Data image = *answer[kTDWWallpaperImage]->asData();
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(image.data()), 8), "\x89PNG\r\n\x1a\n");
        EXPECT_EQ(answer[kTDWWallpaperInterfaceOrientation], Value(1));
        const std::string log = household.control(
            "log", { { "at", kSpringboard }, { "request", "getWallpaperPreviewImage" } });
        // The newest entry is the last; the whole message stands in it, so a further key shows.
        EXPECT_THAT(log.substr(log.rfind("\"message\"")), HasSubstr(request));
    }
}

TEST(WallpaperServer, EndsWithWhatFailed)
{
    const std::vector<Row> rows {
        { "no image", faulty(R"("missing-key", "replyKey": "pngData")", kSpringboard), {},
            TDWErrorCreateWithMessage("Service returned no wallpaper data.", -1), 1 },
        { "an image of another type",
            faulty(R"("wrong-type", "replyKey": "pngData", "value": 3)", kSpringboard), {},
            TDWErrorCreateWithMessage("Service returned no wallpaper data.", -1), 1 },
        { "no springboard",
            faulty(R"("error", "error": "InvalidService", "request": "StartService")"), {},
            TDWErrorCreate("wallpaper_client_start_service", -256), 0 },
    };
    forEachRow(rows, [](const SimulatedDevices&, const Row& row, std::size_t i) {
        expectOutcome("tdw_wallpaper", row, i);
    });
    const auto invalid = SimulatedDevices::run("tdw_wallpaper", { udidOf(0), "1", "2" });
    EXPECT_EQ(invalid.output, "");
    EXPECT_EQ(invalid.standardError, "Invalid wallpaper name index specified in arguments!\n");
    EXPECT_EQ(invalid.status, 1);
}

TEST(WatchesAndWallpapers, AFailureAtAnyStepIsTheOneAnswerAndNamesTheStep)
{
    const std::string start = "companion_proxy_client_start_service";
    const std::string read = "companion_proxy_get_value_from_registry";
    const std::string orientation = "wallpaper_client_get_interface_orientation";
    const std::string preview = "wallpaper_client_get_wallpaper_preview_image_png_data";
    struct Step {
        const char* situation;
        std::string device;
        std::string api;
        const char* key = "";
    };
    const auto value = [](const std::string& fault, int nth) {
        return faulty(
            fault + R"(, "request": "GetValueFromRegistry", "nth": )" + std::to_string(nth),
            kProxy);
    };
    const auto picture = [](const std::string& request) {
        return faulty(R"("truncate", "request": ")" + request + '"', kSpringboard);
    };
    std::vector<Step> rows {
        { "the watches, unreadable", faulty(R"("garbage", "request": "GetDeviceRegistry")", kProxy),
            "companion_proxy_get_device_registry" },
        { "the first value, dropped", value(R"("drop")", 1), read, "BatteryCurrentCapacity" },
        { "a later one, cut off", value(R"("truncate")", 2), read, "BatteryIsCharging" },
        { "the last one, unreadable", value(R"("garbage")", 4), read, "FullyCharged" },
        { "unplugged half way", value(R"("detach")", 3), read, "ExternalConnected" },
        { "the second start", faulty(R"("error", "error": "InvalidService", "nth": 3,
              "request": "StartService")"),
            start, "BatteryIsCharging" },
        { "the second session", faulty(R"("drop", "request": "StartSession", "nth": 3)"), start,
            "BatteryIsCharging" },
        { "the orientation", picture("getInterfaceOrientation"), orientation },
        { "the preview", picture("getWallpaperPreviewImage"), preview },
        { "the encryption of the service", faulty(R"("drop", "nth": 2)", "tls"), orientation },
    };
    for (Step& row : rows)
        row.device += "," + watch(R"("BatteryCurrentCapacity": 1, "BatteryIsCharging": true,
            "ExternalConnected": true, "FullyCharged": true)");
    forEachRow(rows, [](const SimulatedDevices&, const Step& row, std::size_t i) {
        const bool isPicture = row.api.starts_with("wallpaper");
        const auto answer = SimulatedDevices::run(
            isPicture ? "tdw_wallpaper" : "tdw_companion_battery", { udidOf(i), "1" });
        ASSERT_TRUE(answer.error) << answer.output;
        const Dictionary& info = answer.error->userInfo();
        EXPECT_THAT(*info.find(kDebugDescriptionErrorKey)->asString(),
            testing::StartsWith("API: " + row.api + " |"));
        const Value* detail = info.find(kTDWErrorDetailKey);
        EXPECT_EQ(detail ? *detail->asString() : "", row.key);
        EXPECT_EQ(answer.status, answer.error->code() & 0xff);
    });
}

TEST(WallpaperServer, ReadsTheWidthAsAPlainDecimalNumber)
{
    const std::pair<const char*, double> cases[]
        = { { "390.00", 390 }, { " +1e2px", 100 }, { "-5.5", -5.5 }, { "inf", 0 }, { "nan", 0 },
              { "0x10", 0 }, { "1,5", 1 }, { "", 0 }, { "1e999", 0 }, { "wide", 0 } };
    for (const auto& [text, width] : cases) {
        const char* arguments[] = { "tdw_wallpaper", "udid", "1", "0", text };
        EXPECT_EQ(
            TDWParseWallpaperWidthPixelsFromArguments(5, const_cast<char**>(arguments)), width)
            << text;
    }
}

TEST(WallpaperClient, NumbersErrorsInItsOwnWay)
{
    const std::pair<int, int> cases[] = { { 0, 0 }, { -1, -1 }, { -4, -4 }, { -5, -6 }, { -6, -5 },
        { -7, -256 }, { -256, -256 }, { 1, -256 } };
    for (const auto& [service, client] : cases)
        EXPECT_EQ(wallpaper_error(service), client) << service;
    EXPECT_STREQ(wallpaper_name_to_string(0), "lockscreen");
    EXPECT_STREQ(wallpaper_name_to_string(7), "homescreen");
    EXPECT_EQ(wallpaper_client_free(nullptr), WALLPAPER_E_INVALID_ARG);
    wallpaper_client_t client = reinterpret_cast<wallpaper_client_t>(1);
    EXPECT_EQ(wallpaper_client_new(nullptr, nullptr, &client), WALLPAPER_E_INVALID_ARG);
    EXPECT_EQ(client, nullptr);
}
