#include "Devices/MultiplexerProbe.h"
#include "Errors/CommandLineError.h"

namespace tdw::cli {

namespace {

struct Explanation {
    /// After the address in quotes.
    std::string whatIsWrong;
    std::string advice;
};

Explanation explain(const MultiplexerReport& report)
{
    const std::string restart = "Restart it: systemctl restart usbmuxd";
    switch (report.state) {
    case MultiplexerState::Absent:
        return { "does not exist: usbmuxd is not running.",
            "Connecting a device with a cable starts usbmuxd, if it is installed. To start it by "
            "hand: systemctl start usbmuxd" };
    case MultiplexerState::NotPermitted:
        return { "may not be opened by this user.",
            "usbmuxd lets every user in by default; its socket's permissions were changed." };
    case MultiplexerState::NobodyListens:
        return { "has nobody listening on it: usbmuxd is not running.", restart };
    case MultiplexerState::Unreachable:
        return { "cannot be reached: " + report.systemMessage + ".", {} };
    case MultiplexerState::Silent:
        return { "does not answer.", restart };
    case MultiplexerState::Nonsense:
        return { "answers, but not as usbmuxd does.",
            "Something other than usbmuxd may be listening there. " + restart };
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
    if (report.address.isFromEnvironment)
        explanation.advice
            = "The variable USBMUXD_SOCKET_ADDRESS says to look there; without it, this computer's own "
              "usbmuxd is asked.";
    return commandLineError({ .status = ExitStatus::MultiplexerUnavailable,
        .reason = "The multiplexer's socket \"" + report.address.description() + "\" "
            + explanation.whatIsWrong,
        .advice = std::move(explanation.advice),
        .cause = cause });
}

} // namespace tdw::cli
