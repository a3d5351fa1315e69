#include "Host/TDWServerInvocation.h"

#include "Host/FakeServers.h"
#include "Host/ServerRun.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/PropertyList.h"
#include "ProcessResources.h"
#include "Support/TDWErrorHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>

using namespace tdw;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

// This binary is also the server that the tests run, under the name "tdw_child".

namespace {

Value envelopeOf(std::size_t payloadBytes)
{
    return Dictionary { { "response", std::string(payloadBytes, 'x') } };
}

void printEnvelope(std::size_t payloadBytes)
{
    (void)writeToDescriptor(STDOUT_FILENO, *encodeXmlPropertyList(envelopeOf(payloadBytes)));
}

[[noreturn]] void runAsServer(std::string_view job, const std::vector<std::string>& arguments)
{
    int status = 0;
    if (job == "envelope") {
        printEnvelope(std::stoul(arguments[0]));
        status = std::stoi(arguments[1]);
    } else if (job == "flood") {
        print(STDERR_FILENO, std::string(std::size_t { 8 } << 20, 'e'));
        printEnvelope(std::size_t { 8 } << 20);
    } else if (job == "half") {
        const auto whole = encodeXmlPropertyList(envelopeOf(100));
        (void)writeToDescriptor(STDOUT_FILENO, std::span(*whole).first(whole->size() - 20));
        status = 5;
    } else if (job == "say") {
        print(STDERR_FILENO, arguments[0]);
        status = std::stoi(arguments[1]);
    } else if (job == "die") {
        raise(SIGKILL);
    } else if (job == "grandchild") {
        leaveGrandchildBehind("hang", arguments[0].c_str(), arguments[1] == "own group");
        printEnvelope(1);
    } else if (job == "live on") {
        printEnvelope(1);
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        (void)open(arguments[0].c_str(), O_RDONLY | O_CLOEXEC); // until the test opens it too
        status = 9;
    } else if (job == "hang") {
        pause();
    }
    _exit(status);
}

class TDWServerInvocation : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_servers = std::make_unique<FakeServers>();
        // The thread sanitizer starts a thread of its own along with a program's first.
        std::thread([] {}).join();
    }
    static void TearDownTestSuite() { s_servers.reset(); }

    void SetUp() override { m_before = ProcessResources::now(); }
    void TearDown() override { EXPECT_EQ(ProcessResources::settling(m_before), m_before); }

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

    static std::unique_ptr<FakeServers> s_servers;
    ProcessResources m_before;
};

std::unique_ptr<FakeServers> TDWServerInvocation::s_servers;

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
    EXPECT_EQ(invoke({ "flood" }), envelopeOf(std::size_t { 8 } << 20));
}

TEST_F(TDWServerInvocation, ExplainsARunWithoutAnEnvelope)
{
    const std::string unexpected = "Server tdw_child terminated unexpectedly with code ";
    const struct {
        std::vector<std::string> arguments;
        std::int32_t status;
        std::string reason;
    } cases[] = {
        { { "nothing" }, 0, unexpected + "0" },
        { { "half" }, 5, unexpected + "5" },
        { { "die" }, SIGKILL, unexpected + "9" },
        { { "say", " \n\t\n", "3" }, 3, unexpected + "3" },
        { { "say", "bad \xff", "3" }, 3, unexpected + "3" },
        { { "say", "\n WARN: no\n\n", "3" }, 3, "\n WARN: no\n\n" },
        { { "say", "ignored", "111" }, 111,
            "Server tdw_child failed to determine its own server name. This is a serious bug that "
            "should never occur in production (famous last words)." },
        { { "say", "ignored", "123" }, 123,
            "Server name is not valid: tdw_child. Make sure main() in tdwserver is checking for it "
            "and that it's declared in the TDWServer string enum." },
    };
    for (const auto& row : cases) {
        std::int32_t status = -1;
        const Error error = errorOf(invoke(row.arguments, &status));
        EXPECT_EQ(status, row.status);
        EXPECT_EQ(error, Error(kTidewellErrorDomain, row.status, row.reason));
    }
}

TEST_F(TDWServerInvocation, RefusesWhatItMustNotRunAndSaysWhy)
{
    using std::filesystem::perms;
    s_servers->add("tdw_writable", perms(0777));
    s_servers->add("tdw_plain", perms(0644));
    std::filesystem::create_symlink("/bin/true", s_servers->path("tdw_outside"));
    std::filesystem::create_directory(s_servers->path("tdw_directory"));
    const std::string notFound = "Server executable not found for ";
    const struct {
        std::string name;
        std::string reason;
        std::string cause;
    } cases[] = {
        { "tdw_absent", notFound + "\"tdw_absent\"", "No such file" },
        { "../bin/true", notFound + "\"../bin/true\"", "slash" },
        { "/bin/true", notFound + "\"/bin/true\"", "slash" },
        { "..", notFound + "\"..\"", "plain file name" },
        { "", notFound + "\"\"", "not empty" },
        { "tdw_writable", "tdw_writable\"", "" },
        { "tdw_plain", "tdw_plain\"", "" },
        { "tdw_outside", "tdw_outside\"", "" },
        { "tdw_directory", "tdw_directory\"", "" },
    };
    for (const auto& row : cases) {
        std::int32_t status = -77;
        const Error error
            = errorOf(TDWInvokeServer(row.name, s_servers->bundle(), {}, nullptr, &status));
        EXPECT_EQ(status, -77) << "untouched where nothing ran";
        EXPECT_THAT(error.failureReason(), HasSubstr(row.reason));
        EXPECT_THAT(error.debugDescription(), HasSubstr(row.cause));
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
    EXPECT_EQ(invoke({ "grandchild", lock, "same group" }), envelopeOf(1));
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

TEST_F(TDWServerInvocation, KillsAServerThatOutlivesItsTime)
{
    ServerRunOptions options;
    options.executable = s_servers->path("tdw_child");
    options.serverName = "tdw_child";
    options.arguments = { "hang" };
    options.timeout = 50ms;
    const auto outcome = runServer(std::move(options));
    ASSERT_TRUE(outcome);
    EXPECT_TRUE(outcome->timedOut);
    EXPECT_EQ(outcome->termination, (Termination { SIGKILL, true }));
}

TEST_F(TDWServerInvocation, GivesStandardErrorToTheCallersPipe)
{
    Pipe pipe = *Pipe::create();
    const Value failed = TDWInvokeServer(
        "tdw_child", s_servers->bundle(), { "say", "words", "3" }, &pipe, nullptr);
    EXPECT_EQ(errorOf(failed).failureReason(), "words");

    // Far more than the pipe holds, and nobody reads: the server still comes to its end.
    Pipe full = *Pipe::create();
    const Value flooded
        = TDWInvokeServer("tdw_child", s_servers->bundle(), { "flood" }, &full, nullptr);
    EXPECT_EQ(flooded, envelopeOf(std::size_t { 8 } << 20));
    EXPECT_GE(full.reader.readToEnd()->size(), 4096U) << "the caller reads what there was room for";
}

TEST_F(TDWServerInvocation, ParsesWhatAnotherRunLeftBehind)
{
    Pipe pipe = *Pipe::create();
    print(pipe.writer.descriptor(), "said");
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

int main(int argc, char** argv)
{
    if (std::string_view(argv[0]).ends_with("tdw_child") && argc > 1)
        runAsServer(argv[1], { argv + 2, argv + argc });
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
