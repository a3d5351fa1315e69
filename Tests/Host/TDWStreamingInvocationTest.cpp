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

namespace {

const Error kServersError = Error("org.example", -7, "the server's own reason");

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

TEST_F(TDWStreamingInvocation, CompletesWithTheErrorThatTheServerHasWritten)
{
    using enum EventStreamOptions::Envelope;
    const std::string failure = xmlOf(TDWClientErrorResponse(kServersError));
    const std::string half = failure.substr(0, failure.size() / 2);
    const std::string words = "WARN: <one>\n[libusbmuxd] two\n";
    const std::string events = "1,1,PHONE\n" + words;
    const struct {
        std::vector<std::string> arguments;
        std::optional<Error> error;
        Run::Envelope envelope = OnStandardError;
    } cases[] = {
        { { "say", "", failure, "0" }, std::nullopt },
        { { "say", "", failure, "7" }, kServersError },
        { { "say", "", words + failure + words, "7" }, kServersError },
        { { "say", "", half, "7" }, unexpectedEnd(7) },
        { { "say", failure, "words\n", "7" }, unexpectedEnd(7) },
        { { "say", "", xmlOf(envelopeOf(1)), "7" }, std::nullopt },
        { { "flood", failure }, kServersError },
        { { "say", failure, "", "7" }, kServersError, OnEitherStream },
        { { "say", events + failure + "bye\n", "", "7" }, kServersError, OnEitherStream },
        { { "say", events, words + failure, "7" }, kServersError, OnEitherStream },
        { { "say", failure, failure, "7" }, kServersError, OnEitherStream },
        { { "say", half, "", "7" }, unexpectedEnd(7), OnEitherStream },
        { { "say", events, words, "7" }, unexpectedEnd(7), OnEitherStream },
    };
    for (const auto& row : cases) {
        Run run(row.arguments, row.envelope);
        ASSERT_TRUE(run.completions.reaches(1));
        EXPECT_EQ(run.error, row.error) << testing::PrintToString(row.arguments).substr(0, 300);
    }
    Run unnamed({ "say", "", "ignored", "123" });
    ASSERT_TRUE(unnamed.completions.reaches(1));
    EXPECT_THAT(unnamed.error->failureReason(), HasSubstr("Server name is not valid: tdw_child"));
}

TEST_F(TDWStreamingInvocation, DeliversEveryLineBeforeTheCompletion)
{
    constexpr int kLines = 200'000;
    Run run({ "count", std::to_string(kLines) });
    ASSERT_TRUE(run.completions.reaches(1));
    ASSERT_EQ(run.lines.size(), kLines + 1);
    EXPECT_EQ(run.lines[kLines - 1], std::to_string(kLines - 1));
    EXPECT_EQ(run.lines.back(), "last");
}

TEST_F(TDWStreamingInvocation, DeliversLinesWhileTheServerRunsAndPassesSignalsOn)
{
    Run run({ "hang" });
    ASSERT_TRUE(run.delivered.reaches(1));
    EXPECT_EQ(run.completions.value(), 0);
    EXPECT_EQ(getpgid(run.handle->identifier()), run.handle->identifier());
    run.handle->sendSignal(SIGTERM);
    ASSERT_TRUE(run.completions.reaches(1));
    EXPECT_EQ(run.error->failureReason(), unexpectedEnd(SIGTERM).failureReason());
    EXPECT_THAT(run.error->debugDescription(), HasSubstr("killed by signal 15 (SIGTERM)"));
    run.handle->sendSignal(SIGKILL); // another process may have the identifier now
}

TEST_F(TDWStreamingInvocation, GoesOnWithoutAnOwnerAndWithoutStandardOutput)
{
    Run run({ "close" });
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
        Run run({ "grandchild", lock, group, "line\nrest" });
        ASSERT_TRUE(run.completions.reaches(1));
        EXPECT_THAT(run.lines, ElementsAre("line", "rest"));
        EXPECT_EQ(run.error, std::nullopt);
        // Both are gone in the end: the one with the group, the other because its reader went.
        const FileHandle file(open(lock.c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_EQ(flock(file.descriptor(), LOCK_EX), 0);
    }
}

TEST_F(TDWStreamingInvocation, SaysWhatCannotBeStartedAndCallsNoHandler)
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

    EXPECT_EQ(TDWInvokeStreamingServer("tdw_child", s_servers->bundle(), { "say", "x\n", "", "1" },
                  Queue::serial("wait"), Queue::serial("callback"), nullptr, nullptr),
        std::nullopt)
        << "no handlers are needed";
}
