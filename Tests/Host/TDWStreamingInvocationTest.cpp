#include "Host/TDWStreamingInvocation.h"

#include "ChildRole.h"
#include "Host/EventStreamRun.h"
#include "Host/FakeServers.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Counter.h"
#include "Platform/Values/PropertyList.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"

#include <sys/file.h>

using namespace tdw;
using namespace matchers;

// This binary is also the server that the tests run, under the name "tdw_child".

namespace {

const Error kServersError = Error("org.example", -7, "the server's own reason");

std::string xmlOf(const Value& envelope)
{
    return textOf(*encodeXmlPropertyList(envelope));
}

int runAsServer(int count, char** words)
{
    const std::string_view job = words[1];
    const std::vector<std::string> arguments(words + 2, words + count);
    int status = 0;
    if (job == "stream say") {
        print(STDOUT_FILENO, arguments[0]);
        print(STDERR_FILENO, arguments[1]);
        status = std::stoi(arguments[2]);
    } else if (job == "stream flood") {
        print(STDERR_FILENO, std::string(std::size_t { 8 } << 20, '\n') + arguments[0]);
        status = 1;
    } else if (job == "stream count") {
        std::string lines;
        for (int i = 0; i < std::stoi(arguments[0]); ++i)
            lines += std::to_string(i) + '\n';
        print(STDOUT_FILENO, lines + "last");
    } else if (job == "stream grandchild") {
        leaveGrandchildBehind(
            "stream wait for the reader", arguments[0].c_str(), arguments[1] == "own group");
        print(STDOUT_FILENO, "line\nrest");
    } else if (job == "stream close") {
        close(STDOUT_FILENO);
        print(STDERR_FILENO, "closed");
        pause();
    } else if (job == "stream hang") {
        print(STDOUT_FILENO, "ready\n");
        pause();
    } else if (job == "stream wait for the reader") {
        pollfd entry { STDOUT_FILENO, 0, 0 };
        (void)poll(&entry, 1, -1);
    }
    _exit(status);
}

const ChildRole kServer({ "stream say", "stream flood", "stream count", "stream grandchild",
                            "stream close", "stream hang", "stream wait for the reader" },
    runAsServer);

class TDWStreamingInvocation : public FakeServersTest {
protected:
    /// A run of the child with what it came to. The queues are given up at once: the run keeps
    /// what it needs.
    struct Run {
        using Envelope = EventStreamOptions::Envelope;
        explicit Run(
            std::vector<std::string> arguments, Envelope envelope = Envelope::OnStandardError)
        {
            auto started = EventStreamRun::start(loop,
                { "tdw_child", s_servers->bundle(), std::move(arguments),
                    Queue::concurrent("callback"),
                    [this](const std::string& line) {
                        EXPECT_EQ(completions.value(), 0) << "the completion comes last";
                        lines.push_back(line);
                        delivered.add();
                    },
                    [this](const std::optional<Error>& result) {
                        error = result;
                        completions.add();
                    },
                    envelope });
            EXPECT_TRUE(started);
            handle = *started;
            thread = std::jthread(
                [this, run = handle] { loop.runUntil([&run] { return run->hasEnded(); }); });
        }

        std::vector<std::string> lines;
        Counter delivered;
        std::optional<Error> error;
        Counter completions;
        std::shared_ptr<EventStreamRun> handle;
        EventLoop loop = *EventLoop::create();
        std::jthread thread;
    };
};

Error unexpectedEnd(int status)
{
    return Error(kTidewellErrorDomain, status,
        "Server tdw_child terminated unexpectedly with code " + std::to_string(status));
}

} // namespace

TEST_F(TDWStreamingInvocation, CompletesWithTheErrorThatStandardErrorHolds)
{
    const std::string failure = xmlOf(TDWClientErrorResponse(kServersError));
    const std::string answer = xmlOf(Dictionary { { "response", "fine" } });
    const std::string warnings = "WARN: <one>\n[libusbmuxd] two\n";
    const struct {
        std::vector<std::string> arguments;
        std::optional<Error> error;
    } cases[] = {
        { { "stream say", "", failure, "0" }, std::nullopt },
        { { "stream say", "", failure, "7" }, kServersError },
        { { "stream say", "", warnings + failure, "7" }, kServersError },
        { { "stream say", "", warnings + failure + warnings, "7" }, kServersError },
        { { "stream say", "", failure.substr(0, failure.size() / 2), "7" }, unexpectedEnd(7) },
        { { "stream say", failure, "words\n", "7" }, unexpectedEnd(7) },
        { { "stream say", "", answer, "7" }, std::nullopt },
        { { "stream flood", failure }, kServersError },
    };
    for (const auto& row : cases) {
        Run run(row.arguments);
        ASSERT_TRUE(run.completions.reaches(1));
        EXPECT_EQ(run.error, row.error) << testing::PrintToString(row.arguments).substr(0, 300);
    }
    Run unnamed({ "stream say", "", "ignored", "123" });
    ASSERT_TRUE(unnamed.completions.reaches(1));
    EXPECT_THAT(unnamed.error->failureReason(), HasSubstr("Server name is not valid: tdw_child"));
}

TEST_F(TDWStreamingInvocation, FindsTheErrorOfAnEventsServerHoweverItIsWritten)
{
    const std::string failure = xmlOf(TDWClientErrorResponse(kServersError));
    const struct {
        const char* situation;
        std::string output;
        std::string standardError;
        std::optional<Error> error;
    } rows[] = {
        { "on standard output", failure, "", kServersError },
        { "among events and words", "1,1,PHONE\nWARN: x\n" + failure + "bye\n", "", kServersError },
        { "on standard error behind words", "1,1,PHONE\n", "WARN: x\n" + failure, kServersError },
        { "on both", failure, failure, kServersError },
        { "cut", failure.substr(0, failure.size() / 2), "", unexpectedEnd(7) },
        { "nowhere", "1,1,PHONE\n", "WARN: x\n", unexpectedEnd(7) },
    };
    for (const auto& row : rows) {
        Run run(
            { "stream say", row.output, row.standardError, "7" }, Run::Envelope::OnEitherStream);
        ASSERT_TRUE(run.completions.reaches(1)) << row.situation;
        EXPECT_EQ(run.error, row.error) << row.situation;
    }
}

TEST_F(TDWStreamingInvocation, DeliversEveryLineBeforeTheCompletion)
{
    constexpr int kLines = 200'000;
    Run run({ "stream count", std::to_string(kLines) });
    ASSERT_TRUE(run.completions.reaches(1));
    ASSERT_EQ(run.lines.size(), kLines + 1);
    EXPECT_EQ(run.lines[kLines - 1], std::to_string(kLines - 1));
    EXPECT_EQ(run.lines.back(), "last");
}

TEST_F(TDWStreamingInvocation, DeliversLinesWhileTheServerRunsAndPassesSignalsOn)
{
    Run run({ "stream hang" });
    ASSERT_TRUE(run.delivered.reaches(1));
    EXPECT_EQ(run.completions.value(), 0);
    EXPECT_EQ(getpgid(run.handle->identifier()), run.handle->identifier());
    run.handle->sendSignal(SIGTERM);
    ASSERT_TRUE(run.completions.reaches(1));
    EXPECT_EQ(run.error->failureReason(), unexpectedEnd(SIGTERM).failureReason());
    EXPECT_THAT(run.error->debugDescription(), HasSubstr("killed by signal 15 (SIGTERM)"));
    run.handle->sendSignal(SIGKILL); // whoever has the identifier now is not meant
}

TEST_F(TDWStreamingInvocation, GoesOnWithoutAnOwnerAndWithoutStandardOutput)
{
    Run run({ "stream close" });
    const pid_t server = run.handle->identifier();
    run.handle.reset();
    EXPECT_EQ(kill(server, 0), 0);
    EXPECT_EQ(kill(server, SIGINT), 0);
    ASSERT_TRUE(run.completions.reaches(1));
    EXPECT_EQ(run.error->code(), SIGINT);
}

TEST_F(TDWStreamingInvocation, EndsWithTheServerThoughADescendantKeepsThePipesOpen)
{
    for (const std::string group : { "same group", "own group" }) {
        const std::string lock = s_servers->path("lock of " + group);
        Run run({ "stream grandchild", lock, group });
        ASSERT_TRUE(run.completions.reaches(1));
        EXPECT_THAT(run.lines, ElementsAre("line", "rest"));
        EXPECT_EQ(run.error, std::nullopt);
        // Both are gone in the end: the one with the group, the other because its reader went.
        const FileHandle file(open(lock.c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_EQ(flock(file.descriptor(), LOCK_EX), 0);
    }
}

TEST_F(TDWStreamingInvocation, SaysWhatCannotBeStartedAndCallsNobody)
{
    const auto mustNotBeCalled = [](const auto&) {
        ADD_FAILURE();
    };
    const auto invoke = [&](const std::string& name) {
        return TDWInvokeStreamingServer(name, s_servers->bundle(), {}, Queue::serial("wait"),
            Queue::serial("callback"), mustNotBeCalled, mustNotBeCalled);
    };
    const auto absent = invoke("tdw_absent");
    ASSERT_TRUE(absent);
    EXPECT_EQ(absent->failureReason(), "Server executable not found for \"tdw_absent\"");
    s_servers->add("tdw_broken");
    std::filesystem::resize_file(s_servers->path("tdw_broken"), 100);
    const auto broken = invoke("tdw_broken");
    ASSERT_TRUE(broken);
    EXPECT_EQ(broken->domain(), kPosixErrorDomain);
}

TEST_F(TDWStreamingInvocation, NeedsNoHandlers)
{
    const Queue wait = Queue::serial("wait");
    EXPECT_EQ(
        TDWInvokeStreamingServer("tdw_child", s_servers->bundle(), { "stream say", "x\n", "", "1" },
            wait, Queue::serial("callback"), nullptr, nullptr),
        std::nullopt);
}
