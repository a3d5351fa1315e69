#include "Support/TDWErrorHelpers.h"

#include "CapturedStream.h"
#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorKinds.h"
#include "Support/TDWErrorMessages.h"
#include "Support/Testing.h"

#include <set>

using namespace tdw;
using namespace matchers;

TEST(TDWErrorHelpers, ChoosesTheDomainByThePrefixOfTheFunction)
{
    const std::pair<const char*, std::string_view> cases[]
        = { { "lockdownd_get_value", kTDWLockdownErrorDomain },
              { "idevice_new_with_options", kTDWDeviceErrorDomain },
              { "companion_proxy_client_start_service", kTDWCompanionProxyErrorDomain },
              { "sbservices_", kTDWSBServicesErrorDomain }, { "idevice", kTidewellErrorDomain },
              { "Lockdownd_x", kTidewellErrorDomain }, { "plist_to_xml", kTidewellErrorDomain },
              { "wallpaper_client_get_wallpaper_preview_image_png_data", kTidewellErrorDomain } };
    for (const auto& [api, domain] : cases)
        EXPECT_EQ(TDWErrorDomainForAPI(api), domain) << api;
    EXPECT_EQ(kTDWDeviceErrorDomain, std::string(kTidewellErrorDomain) + ".Device");
}

TEST(TDWErrorHelpers, ExplainsCodesInWords)
{
    const std::string_view success
        = "Success (this shouldn\u2019t be an error, please report this).";
    const std::tuple<std::string_view, std::int32_t, std::string_view> cases[] = {
        { kTDWDeviceErrorDomain, 0, success },
        { kTDWDeviceErrorDomain, -2, "Unknown device error from libimobiledevice." },
        { kTDWDeviceErrorDomain, -3, "The device is not available." },
        { kTDWDeviceErrorDomain, -8, "Unknown device error." },
        { kTDWLockdownErrorDomain, -17, "The device is locked." },
        { kTDWLockdownErrorDomain, -39, "Managed configuration challenge required." },
        { kTDWLockdownErrorDomain, -40, "Unknown lockdownd error." },
        { kTDWLockdownErrorDomain, -256, "Unknown lockdownd error from libimobiledevice." },
        { kTDWCompanionProxyErrorDomain, -7, "Operation already in progress." },
        { kTDWCompanionProxyErrorDomain, -100, "No companion devices were found." },
        { kTDWCompanionProxyErrorDomain, -102, "Timeout waiting for companion device reply." },
        { kTDWCompanionProxyErrorDomain, -103, "Unknown companion proxy error." },
        { kTDWCompanionProxyErrorDomain, -256,
            "Unknown companion proxy error from libimobiledevice." },
        { kTDWSBServicesErrorDomain, -3, "Connection failed." },
        { kTDWSBServicesErrorDomain, -4, "Unknown sbservices error." },
        { kTDWSBServicesErrorDomain, -256, "Unknown sbservices error from libimobiledevice." },
    };
    for (const auto& [domain, code, reason] : cases)
        EXPECT_EQ(
            TDWMapError(domain, code), (Dictionary { { kLocalizedFailureReasonErrorKey, reason } }))
            << domain << ' ' << code;

    std::set<std::string> reasons;
    for (std::int32_t code = -39; code <= 0; ++code)
        reasons.insert(TDWMapError(kTDWLockdownErrorDomain, code)
                           .find(kLocalizedFailureReasonErrorKey)
                           ->debugDescription());
    EXPECT_EQ(reasons.size(), 40U) << "every code of the dense range has words of its own";
}

TEST(TDWErrorHelpers, HasNoReasonThatTheTroubleshootingPageLacks)
{
    const std::string page = contentsOf(TIDEWELL_SOURCE_DIR "/Docs/troubleshooting.md");
    for (const auto reasons : { &_TDWMapDeviceError, &_TDWMapLockdownError,
             &_TDWMapCompanionProxyError, &_TDWMapSBServicesError }) {
        for (std::int32_t code = -300; code <= 0; ++code) {
            const Dictionary information = reasons(code);
            const std::string* reason = information.stringAt(kLocalizedFailureReasonErrorKey);
            ASSERT_TRUE(reason);
            EXPECT_NE(page.find("\n| " + *reason + " |"), std::string::npos) << *reason;
        }
    }
}

TEST(TDWErrorHelpers, UsesTheDetailOnceAndOnlyWhereItSaysSomething)
{
    setErrorDetail("dropped");
    setErrorDetail("ProductVersion");
    const Error detailed = TDWErrorCreate("lockdownd_get_value", -17);
    EXPECT_EQ(gTDWErrorDetail, nullptr);
    setErrorDetail("");
    const Error plain = TDWErrorCreate("lockdownd_get_value", -17);
    EXPECT_EQ(gTDWErrorDetail, nullptr) << "an empty detail is taken up too";

    const Dictionary expected { { kLocalizedFailureReasonErrorKey, "The device is locked." },
        { kDebugDescriptionErrorKey, "API: lockdownd_get_value | CODE: -17" } };
    EXPECT_EQ(plain, Error(kTDWLockdownErrorDomain, -17, expected));
    Dictionary withDetail = expected;
    withDetail.set("TDWErrorDetail", "ProductVersion");
    EXPECT_EQ(detailed, Error(kTDWLockdownErrorDomain, -17, withDetail));
}

TEST(TDWErrorHelpers, ReportsADomainWithoutWords)
{
    CapturedStream standardError(STDERR_FILENO);
    const Error error = TDWErrorCreate("plist_to_xml", -1);
    EXPECT_EQ(error,
        Error(kTidewellErrorDomain, -1,
            Dictionary { { kLocalizedFailureReasonErrorKey, "Unknown error (not mapped)." },
                { kDebugDescriptionErrorKey, "API: plist_to_xml | CODE: -1" } }));
    EXPECT_THAT(standardError.text(),
        MatchesRegex("\\[ERROR\\] \\(Source/Support/TDWErrorHelpers.cpp:[0-9]+\\) No mapper for "
                     "error domain org.tidewell.Tidewell\n"));
}

TEST(TDWErrorHelpers, KnowsTheCodesOfUntrustedDevices)
{
    std::set<std::int32_t> unpaired;
    for (std::int32_t code = -300; code <= 300; ++code) {
        if (TDWLockdownErrorIsUnpairedDeviceError(code))
            unpaired.insert(code);
    }
    EXPECT_EQ(unpaired, (std::set<std::int32_t> { -17, -18, -19, -29, -31, -35, -37, -38, -39 }));
}

TEST(TDWErrorHelpers, AppendsToWarningsOnlyWhereThereIsSomething)
{
    const Error first("d", 1, "one");
    Dictionary payload { { "warnings", "no array" } };
    TDWAppendErrorToWarningsArray(&payload, &first);
    EXPECT_EQ(TDWErrorParse(payload.find("warnings")->asArray()->front()), first);

    const Dictionary before = payload;
    CapturedStream standardError(STDERR_FILENO);
    TDWAppendErrorToWarningsArray(nullptr, &first);
    TDWAppendErrorToWarningsArray(&payload, nullptr);
    EXPECT_EQ(payload, before);
    EXPECT_THAT(standardError.text(),
        MatchesRegex("\\[ERROR\\] \\(Source/Support/TDWErrorHelpers.cpp:[0-9]+\\) Response "
                     "dictionary can't be nil for appending a warning to the warnings "
                     "array.\n\\[ERROR\\] \\(Source/Support/TDWErrorHelpers.cpp:[0-9]+\\) Error "
                     "dictionary can't be nil for appending a warning to the warnings array.\n"));
}

TEST(TDWErrorKinds, TellsFailuresApartThatShareTheirCodes)
{
    const std::string key = "WirelessBuddyID";
    const std::pair<const char*, std::function<bool(const Error&)>> kinds[] = {
        { "timeout", &isServerTimeout },
        { "not found", &isServerNotFound },
        { "refusal", &isServerToolRefusal },
        { "no value",
            [&](const Error& error) {
                return isMissingWirelessValue(error, key);
            } },
        { "watches", &isCompanionLookup },
        { "no device", &isDeviceNotFound },
        { "slow device", &isDeviceTimeout },
        { "unpaired", &isUnpairedDevice },
        { "forgotten", &isForgottenPairing },
        { "connection", &isConnectionFailure },
    };
    const std::pair<Error, std::string> rows[] = {
        { serverTimeoutError(), "timeout" },
        { serverNotFoundError("tdw_x", Error::posix(2, "")), "not found" },
        { TDWErrorCreateWithMessage("Server name is not valid: x", 123), "refusal" },
        { TDWErrorCreateWithMessage("Device UDID must be provided.", 1), "" },
        { missingWirelessValueError(key), "no value" },
        { missingWirelessValueError("EnableWifiConnections"), "" },
        { TDWErrorCreateWithMessage("Service returned no wallpaper data.", -1), "" },
        { TDWErrorCreate(kCompanionLookupApi, -256), "watches" },
        { TDWErrorCreate("plist_to_xml", -3), "" },
        { TDWErrorCreate("idevice_new_with_options", -3), "no device" },
        { TDWErrorCreate("companion_proxy_get_value_from_registry", -102), "slow device" },
        { TDWErrorCreate("lockdownd_client_new", -19), "unpaired" },
        { TDWErrorCreate("lockdownd_client_new", -21), "forgotten" },
        { TDWErrorCreate("lockdownd_get_value", -8), "connection" },
        { TDWErrorCreate("wallpaper_client_get_interface_orientation", -3), "connection" },
        { Error(kCocoaErrorDomain, -3, "elsewhere"), "" },
    };
    for (const auto& [error, expected] : rows) {
        std::string found;
        for (const auto& [name, isOfKind] : kinds)
            found += isOfKind(error) ? name : "";
        EXPECT_EQ(found, expected) << error.debugDescription();
    }
    // What travels between processes is still the same kind of error at its end.
    EXPECT_TRUE(
        isServerTimeout(TDWErrorParse(TDWCreateErrorResponseDictionary(serverTimeoutError()))));
    EXPECT_EQ(failedApi(TDWErrorCreate("lockdownd_pair", -4)), "lockdownd_pair");
}
