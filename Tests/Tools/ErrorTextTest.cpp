#include "Text/ErrorText.h"

#include "Errors/CommandLineError.h"
#include "Platform/Values/Value.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"

#include <cerrno>

namespace tdw::cli {

namespace {

constexpr ErrorStyle kVerbose { .detail = ErrorDetail::Everything };

TEST(ErrorText, JoinsWhatWasTriedWithTheReasonAndAddsDetailAndAdvice)
{
    setErrorDetail("SerialNumber");
    const auto error = whileTrying("Cannot read \"x\"", TDWErrorCreate("lockdownd_get_value", -17));
    const std::string usual = "tidewell: Cannot read \"x\": The device is locked.\n"
                              "  Detail: SerialNumber\n"
                              "  Unlock the device, keep its screen on, and try again.\n";
    EXPECT_EQ(errorText(error, {}), usual);
    EXPECT_EQ(errorText(error, kVerbose), usual + "  API: lockdownd_get_value | CODE: -17\n");
}

TEST(ErrorText, FurtherCausesAreForThoseWhoWantEverything)
{
    const Error cause = Error::posix(ENOENT, "Cannot find \"/x\"");
    const auto chain = commandLineError({ .status = ExitStatus::Failure,
        .reason = "It failed.",
        .advice = "Try again.",
        .cause = cause });
    const Error parallel("d", 1,
        Dictionary { { kLocalizedFailureReasonErrorKey, "Both ways failed." },
            { kMultipleUnderlyingErrorsKey,
                Array { Error("d", 2, "One."), Error("d", 3, "Two.") } } });
    EXPECT_EQ(errorText(chain, {}), "tidewell: It failed.\n  Try again.\n");
    EXPECT_EQ(errorText(chain, kVerbose),
        "tidewell: It failed.\n"
        "  Cause: Cannot find \"/x\": No such file or directory\n"
        "  Try again.\n");
    EXPECT_EQ(errorText(parallel, {}), "tidewell: Both ways failed.\n");
    EXPECT_EQ(errorText(Error("some.domain", -7, Dictionary {}), {}),
        "tidewell: Error -7 in \"some.domain\".\n");
    EXPECT_EQ(errorText(parallel, kVerbose),
        "tidewell: Both ways failed.\n  Cause: One.\n  Cause: Two.\n");
}

TEST(ErrorText, WhatACrashedServerHasWrittenIsBoundedAndHarmless)
{
    std::string output = "first\r\n\nsecond\x1b[2J\n";
    output += std::string(100, '\n') + std::string("more\n") + std::string(5000, '\n');
    for (int i = 0; i < 100; ++i)
        output += "endless\n";
    const auto text = errorText(Error("d", 1, output), {});
    EXPECT_EQ(
        text.substr(0, 62), "tidewell: first\n    second\\u001b[2J\n    more\n    endless\n    e");
    EXPECT_LT(text.size(), 300U);
}

TEST(ExitStatus, TellsTheKindsOfFailureApart)
{
    const std::pair<Error, ExitStatus> rows[] = {
        { TDWErrorCreate("idevice_new_with_options", -3), ExitStatus::NoDevice },
        { TDWErrorCreate("idevice_new_with_options", -7), ExitStatus::TimedOut },
        { TDWErrorCreate("lockdownd_client_new", -19), ExitStatus::NotTrusted },
        { TDWErrorCreate("lockdownd_client_new", -21), ExitStatus::NotTrusted },
        { TDWErrorCreate("lockdownd_client_new", -7), ExitStatus::TimedOut },
        { TDWErrorCreate("lockdownd_client_new", -5), ExitStatus::Failure },
        { TDWErrorCreate("companion_proxy_get_device_registry", -102), ExitStatus::TimedOut },
        { TDWErrorCreateWithMessage("Server timeout.", 1), ExitStatus::TimedOut },
        { TDWErrorCreateWithMessage("Unsupported action", 1), ExitStatus::Failure },
        { TDWErrorCreateWithMessage("…", 123), ExitStatus::ServerNotRun },
        { Error("elsewhere", -3, "No."), ExitStatus::Failure },
    };
    for (const auto& [error, status] : rows) {
        EXPECT_EQ(exitStatusOf(error), status) << error.debugDescription();
        EXPECT_EQ(exitStatusOf(whileTrying("Cannot try", error)), status);
    }
}

} // namespace

} // namespace tdw::cli
