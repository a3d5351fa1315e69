#include "Support/TDWErrorHelpers.h"

#include "Interfaces/TDWResponse.h"
#include "Interfaces/TDWServerState.h"
#include "Platform/Handle.h"
#include "Platform/Values/Utf8.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorMessages.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

const std::string_view kTidewellErrorDomain = "org.tidewell.Tidewell";
const std::string_view kTDWDeviceErrorDomain = "org.tidewell.Tidewell.Device";
const std::string_view kTDWLockdownErrorDomain = "org.tidewell.Tidewell.Lockdown";
const std::string_view kTDWCompanionProxyErrorDomain = "org.tidewell.Tidewell.CompanionProxy";
const std::string_view kTDWSBServicesErrorDomain = "org.tidewell.Tidewell.SBServices";
const std::string_view kTDWErrorDetailKey = "TDWErrorDetail";

char* gTDWErrorDetail = nullptr;

using tdw::Dictionary;
using tdw::Error;

namespace {

constexpr std::array<std::int32_t, 9> kUnpairedDeviceCodes { -17, -18, -19, -29, -31, -35, -37, -38,
    -39 };

/// The detail, taken out of the global together with its memory.
tdw::Handle<char, &std::free> takeErrorDetail()
{
    return tdw::Handle<char, &std::free>(std::exchange(gTDWErrorDetail, nullptr));
}

} // namespace

std::string_view TDWErrorDomainForAPI(const char* apiName)
{
    const std::string_view name = apiName;
    if (name.starts_with("lockdownd_"))
        return kTDWLockdownErrorDomain;
    if (name.starts_with("idevice_"))
        return kTDWDeviceErrorDomain;
    if (name.starts_with("companion_proxy_"))
        return kTDWCompanionProxyErrorDomain;
    if (name.starts_with("sbservices_"))
        return kTDWSBServicesErrorDomain;
    return kTidewellErrorDomain;
}

Dictionary TDWMapError(std::string_view domain, std::int32_t code)
{
    if (domain == kTDWDeviceErrorDomain)
        return _TDWMapDeviceError(code);
    if (domain == kTDWLockdownErrorDomain)
        return _TDWMapLockdownError(code);
    if (domain == kTDWCompanionProxyErrorDomain)
        return _TDWMapCompanionProxyError(code);
    if (domain == kTDWSBServicesErrorDomain)
        return _TDWMapSBServicesError(code);
    if (TDWDebugLevel() <= 0)
        tdw::reportError("No mapper for error domain " + std::string(domain));
    return { { tdw::kLocalizedFailureReasonErrorKey, "Unknown error (not mapped)." } };
}

Error TDWErrorCreate(const char* apiName, std::int32_t code)
{
    const std::string_view domain = TDWErrorDomainForAPI(apiName);
    Dictionary userInfo = TDWMapError(domain, code);
    const auto detail = takeErrorDetail();
    if (detail && *detail != '\0')
        userInfo.set(kTDWErrorDetailKey, tdw::withInvalidUtf8Replaced(detail.get()));
    userInfo.set(tdw::kDebugDescriptionErrorKey,
        "API: " + std::string(apiName) + " | CODE: " + std::to_string(code));
    return Error(domain, code, std::move(userInfo));
}

Error TDWErrorCreateWithMessage(std::string_view message, std::int32_t code)
{
    return Error(kTidewellErrorDomain, code, message);
}

Error TDWErrorCreateWithInfo(std::int32_t code, const Dictionary* userInfo)
{
    return Error(kTidewellErrorDomain, code, userInfo ? *userInfo : Dictionary());
}

bool TDWLockdownErrorIsUnpairedDeviceError(std::int32_t code)
{
    return std::find(kUnpairedDeviceCodes.begin(), kUnpairedDeviceCodes.end(), code)
        != kUnpairedDeviceCodes.end();
}

void TDWAppendErrorToWarningsArray(Dictionary* payload, const Error* error)
{
    if (!payload) {
        tdw::reportError(
            "Response dictionary can't be nil for appending a warning to the warnings array.");
        return;
    }
    if (!error) {
        tdw::reportError(
            "Error dictionary can't be nil for appending a warning to the warnings array.");
        return;
    }
    const tdw::Value* present = payload->find(kTDWResponseWarningsKey);
    const tdw::Array* array = present ? present->asArray() : nullptr;
    tdw::Array warnings = array ? *array : tdw::Array();
    warnings.emplace_back(TDWCreateErrorResponseDictionary(*error));
    payload->set(kTDWResponseWarningsKey, std::move(warnings));
}

namespace tdw {

void setErrorDetail(std::string_view detail)
{
    takeErrorDetail();
    gTDWErrorDetail = strndup(detail.data(), detail.size());
}

} // namespace tdw
