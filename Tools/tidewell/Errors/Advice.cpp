#include "Errors/Advice.h"

#include "Errors/CommandLineError.h"
#include "Platform/Values/Value.h"
#include "Support/TDWErrorHelpers.h"

#include <cstdint>
#include <string_view>

namespace tdw::cli {

namespace {

struct KnownAdvice {
    std::int64_t code;
    std::string_view advice;
};

constexpr std::string_view kUnlock = "Unlock the device, keep its screen on, and try again.";
constexpr std::string_view kPair
    = "Connect the device with a cable and run \"tidewell pair\" with its UDID.";
constexpr std::string_view kManaged
    = "The device is managed: its administrator can allow connections to computers.";

constexpr std::string_view kReplug
    = "Disconnect the device and connect it again: usbmuxd then renews the pairing, and the device "
      "asks its user. If that does not help, run \"tidewell pair\" with its UDID.";

constexpr KnownAdvice kLockdownAdvice[] = {
    { -5,
        "The device may have forgotten this computer. Disconnect it and connect it again: usbmuxd "
        "then renews the pairing. A wrong clock on either side has the same effect." },
    { -7, "Unlock the device, reconnect it, and try again." },
    { -12, "If the device has not been unlocked since its start, unlock it once." },
    { -13,
        "Over the network a device answers nothing before it trusts this computer: connect it with "
        "the cable first." },
    { -14, "Unlock the device; a restriction set on it may also forbid this." },
    { -17, kUnlock },
    { -18,
        "Disconnect the device and connect it again: it then asks once more. Tap Trust when it "
        "asks." },
    { -19, "Tap Trust on the device and enter its passcode." },
    { -21, kReplug },
    { -29, kPair },
    { -31, kPair },
    { -34, "Unlock the device once; a restriction set on it may also forbid this." },
    { -35, kUnlock },
    { -36, "Connect the device with a cable and try again." },
    { -37, "The device is in lost mode. End that in Find My first." },
    { -38, kManaged },
    { -39, kManaged },
};

constexpr KnownAdvice kDeviceAdvice[] = {
    { -3, "Connect the device and unlock it; \"tidewell list\" shows what can be reached." },
    { -7, "Unlock the device, reconnect it, and try again." },
};

std::string_view knownAdviceFor(const Error& error)
{
    const auto search = [&](const auto& table) -> std::string_view {
        for (const KnownAdvice& known : table) {
            if (known.code == error.code())
                return known.advice;
        }
        return {};
    };
    if (error.domain() == kTDWLockdownErrorDomain)
        return search(kLockdownAdvice);
    if (error.domain() == kTDWDeviceErrorDomain)
        return search(kDeviceAdvice);
    return {};
}

} // namespace

std::string adviceFor(const Error& error)
{
    for (const Error& link : causeChain(error)) {
        const Value* advice = link.userInfo().find(kAdviceErrorKey);
        if (const std::string* text = advice ? advice->asString() : nullptr)
            return *text;
        if (const auto known = knownAdviceFor(link); !known.empty())
            return std::string(known);
    }
    return {};
}

} // namespace tdw::cli
