#include "Devices/MultiplexerProbe.h"
#include "Errors/CommandLineError.h"

namespace tdw::cli {

namespace {

struct Explanation {
    /// After the address in quotes.
    std::string whatIsWrong;
    std::string advice;
};

/// What to do about a multiplexer that is not there.
std::string adviceToStart(const MultiplexerReport& report, std::string_view usually)
{
    if (report.address.isFromEnvironment)
        return "The variable USBMUXD_SOCKET_ADDRESS says to look there; without it, this computer's "
               "own usbmuxd is asked.";
    return std::string(usually);
}

Explanation explain(const MultiplexerReport& report)
{
    constexpr std::string_view kRestart = "Restart it: systemctl restart usbmuxd";
    switch (report.state) {
    case MultiplexerState::Absent:
        return { "does not exist: usbmuxd is not running.",
            adviceToStart(report,
                "Connecting a device with a cable starts usbmuxd, if it is installed. To start it "
                "by hand: systemctl start usbmuxd") };
    case MultiplexerState::NotPermitted:
        return { "may not be opened by this user.",
            "usbmuxd lets every user in by default; its socket's permissions were changed." };
    case MultiplexerState::NobodyListens:
        return { "has nobody listening on it: usbmuxd is not running.",
            adviceToStart(report, kRestart) };
    case MultiplexerState::Unreachable:
        return { "cannot be reached: " + report.systemMessage + ".", adviceToStart(report, "") };
    case MultiplexerState::Silent:
        return { "does not answer.", adviceToStart(report, kRestart) };
    case MultiplexerState::Nonsense:
        return { "answers, but not as usbmuxd does.", adviceToStart(report, kRestart) };
    case MultiplexerState::Working:
        return { "answers, but its list of devices cannot be read.",
            "Try again. If that does not help, reconnect the devices one by one: a single one that "
            "usbmuxd describes incompletely spoils the list." };
    }
    return {};
}

} // namespace

Error multiplexerError(const MultiplexerReport& report, const Error& cause)
{
    auto explanation = explain(report);
    return commandLineError({ .status = ExitStatus::MultiplexerUnavailable,
        .reason = "The multiplexer's socket \"" + report.address.description() + "\" "
            + explanation.whatIsWrong,
        .advice = std::move(explanation.advice),
        .cause = cause });
}

} // namespace tdw::cli
