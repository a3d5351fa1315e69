#include "Model/Scenario.h"
#include "Recording/Reading.h"
#include "Recording/RecordedScenario.h"
#include "Support/Testing.h"

#include <openssl/evp.h>

using namespace tdw;
using namespace tdw::simulator;
using namespace matchers;

namespace {

const std::string kUdid = "00008130-00FACADE0001001C";
const std::string kWatch = "00008301-00FACADE00040026";
const std::string kOldUdid = "f1d0c0ffee0123456789abcdef0123456789abcd";
const std::string kMac = "02:a4:5e:1f:c9:b1";
const std::string kMacBytes = "\x02\xa4\x5e\x1f\xc9\xb1";

Data bytes(const std::string& text)
{
    const auto span = std::as_bytes(std::span(text));
    return { span.begin(), span.end() };
}

Value exchange(std::string_view at, Dictionary request, Dictionary reply, bool hasSession = true)
{
    return Dictionary { { reading::kAt, at }, { reading::kHasSession, hasSession },
        { reading::kRequest, std::move(request) }, { reading::kReply, std::move(reply) } };
}

Value answered(const std::string& domain, Dictionary values)
{
    Dictionary request { { "Request", "GetValue" } };
    if (!domain.empty())
        request.set("Domain", domain);
    return exchange(
        reading::kLockdown, std::move(request), { { "Value", Value(std::move(values)) } });
}

/// A device that tells secrets of every kind, in every place.
Dictionary secretiveDevice()
{
    const Dictionary global { { "UniqueDeviceID", kUdid }, { "WiFiAddress", kMac },
        { "UniqueChipID", 70591799009280028 }, { "DeviceName", "Ann-Marie’s Telefon “Küche” 🌊" },
        { "SerialNumber", "F2LXQ7PR0D41" }, { "PhoneNumber", "+1 (202) 555-0147" },
        { "InternationalMobileEquipmentIdentity", "001010123456780" },
        { "DevicePublicKey", bytes("-----BEGIN KEY-----MIIBCgKCAQEAsecret") },
        { "DeviceCertificate", bytes(std::string("\x30\x82\x01\x0a\x02\x82\x01\x01\x00\xc3", 10)) },
        { "ProductType", "iPhone16,1" }, { "ProductVersion", "18.5" },
        // What the allow list names is no place to hide in.
        { "FirmwareVersion", "iBoot-11881 " + kUdid }, { "BasebandStatus", kMac },
        { "ModelNumber", "F2LXQ7PR0D41" }, { "RegionInfo", "71:00:12:34:56:78:9a" },
        { "Longer", "udid=" + kUdid + ";ecid=70591799009280028;mac=02A45E1FC9B1" },
        { "AsData",
            bytes("x" + kUdid + kMacBytes + std::string(kMacBytes.rbegin(), kMacBytes.rend())) },
        { "Host", kOldUdid }, { "HostID", "3C1A7E57-9B20-4D1F-8A61-0F5E7C2D9B10" },
        { "+12025550147", "key" },
        { "Nested", Dictionary { { kMac, Array { kMac, -7059179900928 } } } },
        { "Bonjour", kMac + "@fe80::a0b0:c0ff:fed0:e001._apple-mobdev2._tcp.local." },
        { "Day", Date(std::chrono::seconds(1'234'567'890)) }, { "Latitude", 52.520008 },
        { "IsSupervised", true } };
    const Dictionary watchKey { { "Command", "GetValueFromRegistry" },
        { "GetValueGizmoUDIDKey", kWatch }, { "GetValueKeyKey", "SerialNumber" } };
    return Dictionary { { reading::kUdid, kUdid }, { reading::kHasPairRecord, true },
        { reading::kHasSession, true },
        { reading::kExchanges,
            Array { answered("", global),
                answered("com.apple.international", { { "Locale", "de_BE-1040" } }),
                exchange(reading::kLockdown,
                    { { "Request", "GetValue" }, { "Domain", "com.apple.mobile.battery" } },
                    { { "Error", "NoSuch_F2LXQ7PR0D41" } }),
                exchange(reading::kCompanionProxy, { { "Command", "GetDeviceRegistry" } },
                    { { "PairedDevicesArray", Array { kWatch } } }),
                exchange(reading::kCompanionProxy, watchKey,
                    { { "RetrievedValueDictionary",
                        Dictionary { { "SerialNumber", "H4WATCH99Z" } } } }) } } };
}

std::string hexOf(const std::string& text, const char* format)
{
    std::string hex;
    for (const char character : text) {
        char digits[3];
        std::snprintf(digits, sizeof digits, format, static_cast<unsigned char>(character));
        hex += digits;
    }
    return hex;
}

/// The characters of Base64 that a text alone decides, after so many bytes of something else.
std::string base64Of(const std::string& text, std::size_t before)
{
    const std::string whole = std::string(before, 'x') + text;
    std::string encoded(whole.size() * 2 + 8, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),
        reinterpret_cast<const unsigned char*>(whole.data()), static_cast<int>(whole.size()));
    const std::size_t first = (before * 8 + 5) / 6;
    const std::size_t end = whole.size() * 8 / 6;
    return encoded.substr(0, static_cast<std::size_t>(length)).substr(first, end - first);
}

} // namespace

TEST(Recording, HoldsNoSecretInWhateverSpelling)
{
    Replacement replacement;
    const std::string text = recordedScenario({ secretiveDevice() }, replacement).dump();
    ASSERT_TRUE(scenarioFromText(text, ".")) << text;
    const std::string secrets[] = { kUdid, kWatch, kOldUdid, kMac, kMacBytes, "00FACADE0001001C",
        "70591799009280028", "-7059179900928", "02A45E1FC9B1", "Ann-Marie", "Telefon", "Küche",
        "F2LXQ7PR0D41", "555-0147", "5550147", "001010123456780", "MIIBCgKCAQEAsecret",
        "\x01\x0a\x02\x82\x01\x01", "3C1A7E57-9B20-4D1F-8A61-0F5E7C2D9B10",
        "fe80::a0b0:c0ff:fed0:e001", "71:00:12:34:56:78:9a", "de_BE-1040", "2009-02-13T23:31:30Z",
        "52.520008", "H4WATCH99Z" };
    for (const std::string& secret : secrets) {
        const std::string reversed(secret.rbegin(), secret.rend());
        std::vector<std::string> spellings { secret, base64Of(secret, 0), base64Of(secret, 1),
            base64Of(secret, 2) };
        for (const char* format : { "%02x", "%02X" }) {
            spellings.push_back(hexOf(secret, format));
            spellings.push_back(hexOf(reversed, format));
        }
        for (const std::string& spelling : spellings)
            EXPECT_EQ(text.find(spelling), std::string::npos) << secret << " as " << spelling;
    }
}

TEST(Recording, KeepsShapesAndPutsTheSameForTheSame)
{
    Replacement replacement;
    const Json scenario = recordedScenario({ secretiveDevice() }, replacement);
    const Json& device = scenario["devices"][0];
    const Json& values = device["lockdown"];
    const auto udid = device["udid"].get<std::string>();
    const auto mac = values["WiFiAddress"].get<std::string>();
    EXPECT_EQ(values["ProductType"], "iPhone16,1");
    EXPECT_EQ(values["ProductVersion"], "18.5");
    EXPECT_EQ(values["UniqueDeviceID"], udid);
    EXPECT_EQ(udid.substr(0, 9), "00008130-");
    const auto number = values["UniqueChipID"].get<std::uint64_t>();
    EXPECT_EQ(number, std::stoull(udid.substr(9), nullptr, 16));
    EXPECT_EQ(std::to_string(number).size(), 17U);

    // As hexadecimal digits without colons, in capital letters and in small ones.
    std::string digits = mac;
    std::erase(digits, ':');
    EXPECT_EQ(digits.size(), 12U);
    std::string capitals = digits;
    std::transform(capitals.begin(), capitals.end(), capitals.begin(), toupper);
    EXPECT_THAT(values["Longer"].get<std::string>(),
        AllOf(HasSubstr(udid), HasSubstr(std::to_string(number)), HasSubstr(capitals)));
    const auto data = values["AsData"]["$hex"].get<std::string>();
    EXPECT_EQ(data.size(), 2 * (1 + kUdid.size() + 12));
    EXPECT_THAT(data, AllOf(HasSubstr(hexOf(udid, "%02x")), HasSubstr(digits)));
    EXPECT_TRUE(values["Bonjour"].get<std::string>().starts_with(mac + "@"));

    const auto phone = values["PhoneNumber"].get<std::string>();
    EXPECT_EQ(phone.substr(0, 1) + phone.substr(2, 2) + phone.substr(7, 2) + phone.substr(12, 1),
        "+ () -");
    EXPECT_EQ(values["DeviceName"].get<std::string>().size(),
        std::string("Ann-Marie’s Telefon “Küche” 🌊").size());
    EXPECT_TRUE(values["Latitude"].is_number_float());
    EXPECT_TRUE(values["Day"].contains("$date"));
    EXPECT_EQ(values["IsSupervised"], false);
    // The same again is something else: nothing is computed from what it stands for.
    Replacement another;
    EXPECT_NE(recordedScenario({ secretiveDevice() }, another)["devices"][0]["udid"], udid);
}
