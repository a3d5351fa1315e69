#include "Host/TDWServerInvocation.h"

#include "ChildRole.h"
#include "Host/FakeServers.h"
#include "Host/RequestRunner.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Values/PropertyList.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"

#include <sys/file.h>
#include <sys/stat.h>

using namespace tdw;
using namespace std::chrono_literals;
using namespace matchers;

namespace {

/// An application that ignores its children's ends, as the library meets it: every request works,
/// and the status of none is known.
int runAsDeafApplication(int /*count*/, char** words)
{
    struct sigaction action { };
    action.sa_handler = std::string_view(words[3]) == "ignored" ? SIG_IGN : SIG_DFL;
    action.sa_flags = SA_NOCLDWAIT;
    (void)sigaction(SIGCHLD, &action, nullptr);
    const Bundle bundle(words[2]);
    for (int i = 0; i < 30; ++i) {
        std::int32_t status = 0;
        if (TDWInvokeServer("tdw_child", bundle, { "envelope", "3", "4" }, nullptr, &status)
                != envelopeOf(3)
            || status != -1)
            return 1;
    }
    std::optional<Error> error;
    (void)TDWResponseUnwrap(
        TDWInvokeServer("tdw_child", bundle, { "say", "", "words", "3" }, nullptr, nullptr), error);
    if (!error || error->failureReason() != "words")
        return 2;
    ServerRunOptions options;
    options.executable = std::string(words[2]) + "/tdw_child";
    options.serverName = "tdw_child";
    options.arguments = { "hang" };
    options.timeout = 10ms;
    const auto killed = runServer(std::move(options));
    return killed && killed->timedOut && !killed->termination.isKnown ? 0 : 3;
}

const ChildRole kApplication({ "deaf application" }, runAsDeafApplication);

class TDWServerInvocation : public FakeServersTest {
protected:
    static Value invoke(std::vector<std::string> arguments, std::int32_t* status = nullptr)
    {
        return TDWInvokeServer("tdw_child", s_servers->bundle(), arguments, nullptr, status);
    }

    static Error errorOf(const Value& envelope)
    {
        std::optional<Error> error;
        EXPECT_EQ(TDWResponseUnwrap(envelope, error), std::nullopt);
        return *error;
    }
};

} // namespace

TEST_F(TDWServerInvocation, CollectsOutputOfAnySizeAndIgnoresTheStatusOfAnAnswer)
{
    for (const std::size_t size : { 0, 1000, 1496, 65'536, 5'000'000 }) {
        std::int32_t status = -1;
        EXPECT_EQ(invoke({ "envelope", std::to_string(size), "4" }, &status), envelopeOf(size));
        EXPECT_EQ(status, 4);
    }
}

TEST_F(TDWServerInvocation, DrainsBothStreamsWhileTheServerRuns)
{
    EXPECT_EQ(invoke({ "flood", "" }), envelopeOf(kFlood));
}

TEST_F(TDWServerInvocation, ExplainsARunWithoutAnEnvelope)
{
    const std::string answer = xmlOf(envelopeOf(100));
    const std::string unexpected = "Server tdw_child terminated unexpectedly with code ";
    const std::tuple<std::vector<std::string>, std::int32_t, std::string> cases[] = {
        { { "say", "", "", "0" }, 0, unexpected + "0" },
        { { "say", answer.substr(0, answer.size() - 20), "", "5" }, 5, unexpected + "5" },
        { { "say bytes" }, 3, "text \uFFFD more " },
        { { "say", "", " \n\t\n", "3" }, 3, unexpected + "3" },
        { { "say", "", "bad \xff", "3" }, 3, unexpected + "3" },
        { { "say", "", "\n WARN: no\n\n", "3" }, 3, "\n WARN: no\n\n" },
        { { "say", "", "ignored", "111" }, 111,
            "Server tdw_child failed to determine its own server name. This is a serious bug that "
            "should never occur in production (famous last words)." },
        { { "say", "", "ignored", "123" }, 123,
            "Server name is not valid: tdw_child. Make sure main() in tdwserver is checking for it "
            "and that it's declared in the TDWServer string enum." },
    };
    for (const auto& [arguments, expected, reason] : cases) {
        std::int32_t status = -1;
        const Error error = errorOf(invoke(arguments, &status));
        EXPECT_EQ(status, expected);
        EXPECT_EQ(error, Error(kTidewellErrorDomain, expected, reason));
    }
}

TEST_F(TDWServerInvocation, SaysWhichSignalKilledAServer)
{
    std::int32_t status = -1;
    const Error error = errorOf(invoke({ "die" }, &status));
    EXPECT_EQ(status, SIGKILL);
    EXPECT_EQ(error.code(), SIGKILL);
    EXPECT_EQ(error.failureReason(), "Server tdw_child terminated unexpectedly with code 9");
    EXPECT_THAT(
        error.debugDescription(), HasSubstr("Server tdw_child was killed by signal 9 (SIGKILL)."));
}

TEST_F(TDWServerInvocation, WorksInAnApplicationThatIgnoresTheEndsOfItsChildren)
{
    for (const char* disposition : { "ignored", "not waited for" }) {
        LaunchOptions options;
        options.executable = "/proc/self/exe";
        options.arguments
            = { "deaf application", s_servers->bundle().auxiliaryDirectory(), disposition };
        EXPECT_EQ(Process::launch(options)->waitUntilExit(55s), Termination {}) << disposition;
    }
}

TEST_F(TDWServerInvocation, RefusesWhatItMustNotRunAndSaysWhy)
{
    s_servers->add("tdw_writable", std::filesystem::perms(0777));
    const std::string notFound = "Server executable not found for ";
    const std::tuple<std::string, std::string, std::string> cases[] = {
        { "tdw_absent", notFound + "\"tdw_absent\"", "No such file" },
        { "../bin/true", notFound + "\"../bin/true\"", "slash" },
        { "/bin/true", notFound + "\"/bin/true\"", "slash" },
        { "..", notFound + "\"..\"", "plain file name" },
        { "", notFound + "\"\"", "not empty" },
        { "tdw_writable", "tdw_writable\"", "" },
    };
    for (const auto& [name, reason, cause] : cases) {
        std::int32_t status = -77;
        const Error error
            = errorOf(TDWInvokeServer(name, s_servers->bundle(), {}, nullptr, &status));
        EXPECT_EQ(status, -77) << "untouched where nothing ran";
        EXPECT_THAT(error.failureReason(), HasSubstr(reason));
        EXPECT_THAT(error.debugDescription(), HasSubstr(cause));
    }
}

TEST_F(TDWServerInvocation, ReportsAFailedLaunch)
{
    std::ofstream(s_servers->path("tdw_garbage")) << "no program";
    std::filesystem::permissions(s_servers->path("tdw_garbage"), std::filesystem::perms(0755));
    const Error error
        = errorOf(TDWInvokeServer("tdw_garbage", s_servers->bundle(), {}, nullptr, nullptr));
    EXPECT_EQ(error.domain(), kPosixErrorDomain);
    EXPECT_EQ(error.code(), ENOEXEC);
}

TEST_F(TDWServerInvocation, EndsWithTheServerThoughADescendantKeepsThePipesOpen)
{
    const std::string lock = s_servers->path("lock");
    EXPECT_EQ(invoke({ "grandchild", lock, "same group", xmlOf(envelopeOf(1)) }), envelopeOf(1));
    // The lock is free once the descendant is gone: it was killed together with its group.
    const FileHandle file(open(lock.c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(flock(file.descriptor(), LOCK_EX), 0);
}

TEST_F(TDWServerInvocation, WaitsForAServerThatClosesItsStreamsAndLivesOn)
{
    const std::string gate = s_servers->path("gate");
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    std::thread opener([&gate] { FileHandle(open(gate.c_str(), O_WRONLY | O_CLOEXEC)); });
    std::int32_t status = -1;
    EXPECT_EQ(invoke({ "live on", gate }, &status), envelopeOf(1));
    opener.join();
    EXPECT_EQ(status, 9);
}

TEST_F(TDWServerInvocation, GivesStandardErrorToTheCallersPipe)
{
    Pipe pipe = *Pipe::create();
    const Value failed = TDWInvokeServer(
        "tdw_child", s_servers->bundle(), { "say", "", "words", "3" }, &pipe, nullptr);
    EXPECT_EQ(errorOf(failed).failureReason(), "words");

    // Far more than the pipe holds: the server comes to its end all the same, and then it is read.
    Pipe full = *Pipe::create();
    const Value flooded
        = TDWInvokeServer("tdw_child", s_servers->bundle(), { "flood", "" }, &full, nullptr);
    EXPECT_EQ(flooded, envelopeOf(kFlood));
    EXPECT_EQ(full.reader.readToEnd()->size(), kFlood);
    EXPECT_FALSE(full.writer.isOpen());

    Pipe moved = *Pipe::create();
    std::size_t read = 0;
    {
        const std::jthread reader([&read, handle = std::move(moved.reader)]() mutable {
            read = handle.readToEnd()->size();
        });
        EXPECT_EQ(
            TDWInvokeServer("tdw_child", s_servers->bundle(), { "flood", "" }, &moved, nullptr),
            flooded);
    }
    EXPECT_EQ(read, kFlood);

    Pipe unread = *Pipe::create();
    unread.reader.close();
    EXPECT_EQ(TDWInvokeServer("tdw_child", s_servers->bundle(), { "flood", "" }, &unread, nullptr),
        flooded)
        << "no SIGPIPE";
}

TEST_F(TDWServerInvocation, ParsesWhatAnotherRunLeftBehind)
{
    Pipe pipe = *Pipe::create();
    ASSERT_TRUE(pipe.writer.write(bytesOf("said")));
    pipe.writer.close();
    EXPECT_EQ(errorOf(TDWParseServerBinaryResponseData("tdw_x", std::nullopt, pipe.reader, 7)),
        Error(kTidewellErrorDomain, 7, "said"));
    EXPECT_EQ(errorOf(TDWParseServerBinaryResponseData("tdw_x", Data(3), pipe.reader, 7)),
        Error(kTidewellErrorDomain, 7, "Server tdw_x terminated unexpectedly with code 7"))
        << "read to its end before";
    EXPECT_EQ(TDWParseServerBinaryResponseData(
                  "tdw_x", *encodeBinaryPropertyList("no dictionary"), pipe.reader, 7),
        Value("no dictionary"));
}
