#include "EndToEnd/RunningTool.h"
#include "Platform/Values/PropertyList.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

namespace {

std::string scenario(const std::string& device, const std::string& faults = {})
{
    return R"({"devices":[{"udid":")" + kPhone + R"(")" + device + R"(}],"faults":[)" + faults
        + "]}";
}

} // namespace

TEST(Doctor, SaysWhatIsWrongInEachState)
{
    const std::tuple<std::string, int, const char*> rows[] = {
        { scenario(""), 0, "" },
        { scenario(R"(,"state":"unpaired","trust":"asks")"), 0, "warning  Pairing record    none" },
        { scenario(R"(,"trust":"locked")"), 0, "warning  Lock              is locked, and" },
        { scenario(R"(,"trust":"escrow-locked")"), 0, "warning  Lock              has not been" },
        { scenario(R"(,"trust":"before-first-unlock")"), 0, "warning  First unlock      has not" },
        { scenario(R"(,"trust":"forgot-host")"), 1, "failure  Trust             Invalid host ID" },
        { scenario("", R"({"at":"lockdown","request":"QueryType","fault":"drop"})"), 1,
            "failure  Reachable" },
        { scenario("", R"({"at":"tls","fault":"drop"})"), 1, "failure  Trust" },
        { scenario("", R"({"at":"lockdown","request":"StartSession","fault":"detach"})"), 1,
            "failure  Reachable         is not listed any more" },
        { scenario("", R"({"at":"mux","fault":"absent"})"), 1, "failure  Multiplexer" },
        { scenario("", R"({"at":"mux","fault":"no-serial-number"})"), 1, "failure  Multiplexer" },
    };
    for (const auto& [scenario, status, line] : rows) {
        const Household devices(scenario);
        const auto run = tidewell({ "doctor" });
        EXPECT_EQ(run.termination.status, status) << scenario << run.output;
        if (*line == '\0')
            EXPECT_THAT(run.output, AllOf(Not(HasSubstr("warning")), Not(HasSubstr("failure"))));
        else
            EXPECT_THAT(run.output, HasSubstr(line));
        EXPECT_THAT(devices.control(R"({"command":"log","at":"lockdown","request":"Pair"})"),
            HasSubstr(R"("entries":[])"))
            << "a device was made to ask its user: " << scenario;
    }
}

TEST(Doctor, AnswersProgramsOnceAndFindsTheDeviceThatIsMeant)
{
    const Household devices;
    const auto run = tidewell({ "doctor", "Robin's iPhone", "--json" });
    EXPECT_EQ(run.termination.status, 0);
    EXPECT_THAT(run.output,
        AllOf(StartsWith(R"({"Status":"ok","Checks":[{"Check":"bus","Status":"ok")"),
            HasSubstr(R"("Check":"times","Device":")" + kPhone), HasSubstr(R"("handshake":)"),
            Not(HasSubstr(kStranger))));
    const auto none = tidewell({ "doctor", "unknown", "--json" });
    EXPECT_EQ(none.termination.status, 1);
    EXPECT_EQ(std::count(none.output.begin(), none.output.end(), '\n'), 1);
    EXPECT_EQ(none.standardError, "tidewell: 1 check fails.\n");
}

TEST(Doctor, TakesARecordThatCannotBeUsedForNone)
{
    // The device library would pair, and the device ask.
    const Household devices(scenario(R"(,"trust":"asks")"));
    const auto record = devices.directory() / "lib/lockdown" / (kPhone + ".plist");
    ASSERT_TRUE(std::filesystem::exists(record));
    std::ofstream(record) << "garbage";
    EXPECT_THAT(tidewell({ "doctor" }).output, HasSubstr("warning  Pairing record    none"));
    EXPECT_EQ(tidewell({ "info", kPhone }).termination.status, 0);
    EXPECT_THAT(devices.control(R"({"command":"log","at":"lockdown","request":"Pair"})"),
        HasSubstr(R"("entries":[])"));
}

TEST(Doctor, GoesAroundAServiceThatDoesNotAnswer)
{
    const Household devices;
    ASSERT_EQ(tidewell({ "list" }).termination.status, 0);
    const pid_t service = PrivateRuntime::servicePid();
    ASSERT_GT(service, 0);
    kill(service, SIGSTOP);
    const auto run = tidewell({ "doctor", kPhone });
    kill(service, SIGCONT);
    EXPECT_EQ(run.termination.status, 1);
    EXPECT_THAT(run.output,
        AllOf(HasSubstr("failure  Service           The service of Tidewell runs, but does not "
                        "answer."),
            HasSubstr("ok       Trust             accepts this computer")));
}

TEST(Trace, ShowsTheStepsOfEveryProcessAndNoSecret)
{
    const Household devices(scenario(R"(,"state":"unpaired","reconnectAfterTrust":false)"));
    for (const char* road : { "--verbose", "--direct" }) {
        const auto run = tidewell({ "pair", kPhone, "--verbose", road });
        ASSERT_EQ(run.termination.status, 0) << run.standardError;
        EXPECT_THAT(run.standardError,
            AllOf(HasSubstr(" pairing with 00008130-…: "),
                HasSubstr(" handshake with 00008130-…: "), HasSubstr(" request to tdw_pairing: ")));
        std::size_t secrets = 0;
        for (const auto& entry :
            std::filesystem::recursive_directory_iterator(devices.directory())) {
            const std::string text = entry.is_regular_file() ? contentsOf(entry.path()) : "";
            const auto record = decodePropertyList(std::as_bytes(std::span(text)));
            const Dictionary* fields = record ? record->asDictionary() : nullptr;
            for (std::size_t i = 0; fields && i + 20 <= text.size(); i += 20) {
                const std::string part = text.substr(i, 20);
                if (part.find_first_of("<> \n\t") == std::string::npos) {
                    EXPECT_THAT(run.standardError, Not(HasSubstr(part)));
                    ++secrets;
                }
            }
        }
        EXPECT_GT(secrets, 100U) << "no pairing record was looked through";
        ASSERT_EQ(tidewell({ "unpair", kPhone }).termination.status, 0);
    }
    EXPECT_EQ(tidewell({ "list" }).standardError, "");
}

TEST(Report, HoldsNoIdentifierAndIsWrittenWholeOrNotAtAll)
{
    const Household devices;
    const TemporaryDirectory directory;
    const std::string file = directory.path() / "report.tar";
    const auto run = tidewell({ "report", "-o", file });
    ASSERT_EQ(run.termination.status, 0) << run.standardError;
    const std::string archive = contentsOf(file);
    EXPECT_EQ(archive.size() % 512, 0U);
    for (const std::string& text : { run.output, archive }) {
        for (const char* part : { "doctor.txt", "doctor.json", "versions.txt", "journal.txt",
                 "trace.txt", "handshake with 00000001-…", "iPhone16,1" })
            EXPECT_THAT(text, HasSubstr(part));
        for (const char* secret :
            { "FACADE", "Robin", "Sam", "Kitchen", "TWSIM", "02:00:5e", "555" })
            EXPECT_THAT(text, Not(HasSubstr(secret)));
    }
    EXPECT_THAT(runToEnd("/bin/tar", { "-tf", file }).output, HasSubstr("trace.txt\n"));

    EXPECT_EQ(tidewell({ "report", "-o", file }).termination.status, 1) << "it is there already";
    EXPECT_EQ(tidewell({ "report" }).termination.status, 64);
    EXPECT_EQ(tidewell({ "report", "-o", "/dev/full" }).termination.status, 1);
    EXPECT_EQ(tidewell({ "report", "-o", directory.path() / "none/x" }).termination.status, 1);
    const FileHandle full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(
        RunningTool({ "report", "-o", "-" }, full.descriptor()).finish().termination.status, 7);
    EXPECT_EQ(contentsOf(file), archive);
    EXPECT_THAT(directory.names(), ElementsAre("report.tar"));
}
