#include "Errors/CommandLineError.h"
#include "Multiplexer/MultiplexerClient.h"
#include "Multiplexer/UsbBus.h"

#include <unistd.h>

#include <algorithm>

namespace tdw::cli {

namespace {

struct Explanation {
    /// After the address in quotes.
    std::string whatIsWrong;
    std::string advice;
};

/// What to do about a multiplexer that does not run.
std::string adviceToStart(
    const MultiplexerReport& report, const MultiplexerSurroundings& surroundings)
{
    if (report.address.isFromEnvironment)
        return "The variable USBMUXD_SOCKET_ADDRESS names this address; without it, this "
               "computer's own usbmuxd is asked.";
    if (!surroundings.isInstalled)
        return "usbmuxd is not installed. Install its package: sudo apt install usbmuxd";
    if (surroundings.isDeviceOnCable)
        return "A device is on the cable, so usbmuxd should run. Start it: sudo systemctl start "
               "usbmuxd";
    return "Connect a device with a cable: usbmuxd starts with the first device and ends with the "
           "last one.";
}

std::string adviceToRestart(const MultiplexerReport& report)
{
    return report.address.isFromEnvironment
        ? "The variable USBMUXD_SOCKET_ADDRESS names this address."
        : "Restart it: sudo systemctl restart usbmuxd";
}

Explanation explain(const MultiplexerReport& report, const MultiplexerSurroundings& surroundings)
{
    switch (report.state) {
    case MultiplexerState::Absent:
        return { "does not exist: usbmuxd is not running.", adviceToStart(report, surroundings) };
    case MultiplexerState::NotPermitted:
        return { "may not be opened by this user.",
            "By default every user may open the socket of usbmuxd. Its permissions have changed." };
    case MultiplexerState::NotListening:
        return { "is not listened on: usbmuxd is not running.",
            adviceToStart(report, surroundings) };
    case MultiplexerState::Unreachable:
        return { "cannot be reached: " + report.systemMessage + ".",
            report.address.isFromEnvironment ? adviceToStart(report, surroundings) : "" };
    case MultiplexerState::Silent:
        return { "does not answer.", adviceToRestart(report) };
    case MultiplexerState::Nonsense:
        return { "answers, but not as usbmuxd does.", adviceToRestart(report) };
    case MultiplexerState::Working:
        return { "answers, but its list of devices cannot be read.",
            "Try again. If that does not help, reconnect the devices one by one: one device that "
            "usbmuxd describes incompletely makes the whole list unreadable." };
    }
    return {};
}

} // namespace

MultiplexerSurroundings multiplexerSurroundings()
{
    constexpr const char* kPrograms[]
        = { "/usr/sbin/usbmuxd", "/usr/bin/usbmuxd", "/usr/local/sbin/usbmuxd" };
    return { std::ranges::any_of(
                 kPrograms, [](const char* program) { return access(program, X_OK) == 0; }),
        !devicesOnUsbBus().empty() };
}

Error multiplexerError(const MultiplexerReport& report, const std::optional<Error>& cause,
    const MultiplexerSurroundings& surroundings)
{
    auto explanation = explain(report, surroundings);
    return commandLineError({ .status = ExitStatus::MultiplexerUnavailable,
        .reason = "The multiplexer's socket \"" + report.address.description() + "\" "
            + explanation.whatIsWrong,
        .advice = std::move(explanation.advice),
        .cause = cause });
}

} // namespace tdw::cli
