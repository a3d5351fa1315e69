#include "Doctor/ComputerChecks.h"
#include "Doctor/DeviceChecks.h"
#include "Doctor/Pseudonyms.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"
#include "Support/TraceSteps.h"

#include <gmock/gmock.h>

namespace tdw::cli {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

const std::string kUdid = "00008130-00FACADE0010001C";

TraceEvent step(const char* words, bool isEnded = true, std::int64_t code = 0)
{
    const TraceEvent::Clock::time_point start { 5s };
    return { 7, words, kUdid, start, isEnded ? std::optional(start + 14ms) : std::nullopt, code };
}

TEST(Trace, SurvivesTheWireAndRefusesWhatIsNoStep)
{
    for (const TraceEvent& event : { step(kHandshakeStep, true, -5), step(kQueryStep, false) })
        EXPECT_EQ(traceEventIn(traceDatagram(event)), event);
    EXPECT_EQ(
        traceText(step(kHandshakeStep, true, -5)), "handshake with 00008130-…: 14 ms, failed (-5)");
    for (const char* datagram : { "", "1\ta\tb\t1\t2", "1\ta\tb\t1\t2\t0\t", "x\ta\tb\t1\t2\t0",
             "1\ta\tb\t\t2\t0", "1\ta\tb\t1\tx\t0" })
        EXPECT_EQ(traceEventIn(datagram), std::nullopt) << datagram;
}

TEST(Doctor, SaysInWhichStageADeviceFailed)
{
    const Error silent = serverTimeoutError();
    const struct {
        const char* name;
        Error error;
        std::vector<TraceEvent> steps;
        std::string check;
        const char* words;
    } rows[] = {
        { "before it answers", silent, { step(kLookUpStep), step(kQueryStep, false) }, "reachable",
            "does not answer (in: query)" },
        { "in the handshake", silent, { step(kQueryStep), step(kHandshakeStep, false) }, "trust",
            "does not answer (in: handshake)" },
        { "later", silent, { step(kHandshakeStep), step("battery of", false) }, "values",
            "does not answer (in: battery)" },
        { "forgotten", TDWErrorCreate("lockdownd_client_new", -21),
            { step(kQueryStep), step(kHandshakeStep, true, -21) }, "trust", "(in: handshake)" },
        { "without a trace", silent, {}, "reachable", "does not answer" },
    };
    for (const auto& row : rows) {
        const auto findings = deviceFindings({ kUdid, true, row.error, false, row.steps });
        ASSERT_EQ(count(findings, Health::Failure), 1U) << row.name;
        for (const Finding& finding : findings) {
            EXPECT_EQ(finding.health == Health::Failure, finding.check == row.check) << row.name;
            if (finding.health == Health::Failure) {
                EXPECT_THAT(finding.text, HasSubstr(row.words)) << row.name;
                EXPECT_NE(finding.remedy, "") << row.name;
            }
        }
    }
}

TEST(Doctor, TakesAClockForWrongThatNoCertificateKnows)
{
    using std::chrono::year;
    EXPECT_EQ(checkClock(std::chrono::sys_days(year(1970) / 1 / 1)).health, Health::Failure);
    EXPECT_EQ(checkClock(std::chrono::sys_days(year(2026) / 1 / 1)).health, Health::Ok);
    EXPECT_EQ(checkClock(std::chrono::sys_days(year(2099) / 1 / 1)).health, Health::Failure);
}

TEST(Pseudonyms, ReplaceEveryIdentifierAndNothingElse)
{
    Pseudonyms names;
    names.addName("Robin’s iPhone");
    names.addAnswer(Dictionary { { kTDWDeviceInfoSerialNumber, "TWSIM10001" },
        { kTDWDeviceInfoProductType, "iPhone16,1" } });
    names.addWord("robin", "user");
    const std::pair<const char*, const char*> rows[] = {
        { "00008130-00FACADE0010001C.", "00000001-0000000000000000." },
        { "tidewell pair 00008130-00FACADE0010001C", "tidewell pair 00000001-0000000000000000" },
        { "0123456789abcdef0123456789abcdef01234567", "0000000200000000000000000000000000000000" },
        { "7E57CAFE-0000-4000-8000-000000000001", "00000001-0000-4000-8000-000000000000" },
        { "02:00:5e:10:01:01@fe80::a0b0:c0ff:fed0:e001._apple._tcp",
            "02:00:00:00:00:01@2001:db8::1._apple._tcp" },
        { "at 10.1.2.3: 127.0.0.1", "at 192.0.2.1: 127.0.0.1" },
        { "call +1 (202) 555-0100, or write to a.b@example.com",
            "call +00000000001, or write to mail1@example.org" },
        { "\"Robin’s iPhone\", iPhone16,1, TWSIM10001", "\"name-1\", iPhone16,1, name-2" },
        { "/home/robin/x, robinson", "/home/user-1/x, robinson" },
        { "11:39:56.123 +0.031 1.2.3 18.5 0.1.0 (-5)",
            "11:39:56.123 +0.031 1.2.3 18.5 0.1.0 (-5)" },
    };
    for (const auto& [text, replaced] : rows)
        EXPECT_EQ(names.replaced(text), replaced);
}

} // namespace

} // namespace tdw::cli
