#include "Host/RequestRunner.h"

#include <algorithm>
#include <utility>

namespace tdw {

namespace {

/// What a typical envelope needs, and where the buffer starts.
constexpr std::size_t kInitialOutputCapacity = 1496;

} // namespace

/// One server from its start to its end.
class RequestRunner::Run {
public:
    Run(EventLoop& loop, ChildServer server, FileHandle standardErrorCopy, Completion completion)
        : m_loop(loop)
        , m_server(std::move(server))
        , m_completion(std::move(completion))
    {
        m_outcome.output.reserve(kInitialOutputCapacity);
        m_outcome.standardErrorCopy = PipeCopy(std::move(standardErrorCopy));
    }

    Result<void> watch(std::optional<std::chrono::milliseconds> timeout, EventLoop::Handler ended)
    {
        m_end = TDW_TRY(m_loop.whenReadable(m_server.process.descriptor(), std::move(ended)));
        TDW_TRY(m_server.output.watch(m_loop, [this] { readOutput(); }));
        TDW_TRY(m_server.standardError.watch(m_loop, [this] { readStandardError(); }));
        if (timeout)
            m_deadline = m_loop.after(*timeout, [this] {
                m_outcome.timedOut = true;
                m_server.kill();
            });
        return {};
    }

    /// Waits for the server's end where that is yet to come.
    void complete()
    {
        m_outcome.termination = m_server.process.waitUntilExit();
        m_end = {};
        m_deadline = {};
        readLeftovers();
        m_outcome.standardErrorCopy.stop();
        m_completion(std::move(m_outcome));
    }

    void kill() { m_server.kill(); }
    void fail(const Error& error) const { m_completion(error); }

private:
    bool readOutput()
    {
        ServerStream::Chunk chunk;
        const auto bytes = m_server.output.read(chunk);
        m_outcome.output.insert(m_outcome.output.end(), bytes.begin(), bytes.end());
        return !bytes.empty();
    }

    bool readStandardError()
    {
        ServerStream::Chunk chunk;
        const auto bytes = m_server.standardError.read(chunk);
        const std::size_t room = kStandardErrorLimit - m_outcome.standardError.size();
        const auto kept = bytes.first(std::min(room, bytes.size()));
        m_outcome.standardError.insert(m_outcome.standardError.end(), kept.begin(), kept.end());
        m_outcome.standardErrorCopy.add(m_loop, bytes);
        return !bytes.empty();
    }

    void readLeftovers()
    {
        const std::size_t limit = m_outcome.output.size() + ChildServer::kLeftoverLimit;
        while (m_outcome.output.size() < limit && readOutput()) { }
        constexpr std::size_t kChunks = ChildServer::kLeftoverLimit / ServerStream::kChunkBytes;
        for (std::size_t i = 0; i < kChunks && readStandardError(); ++i) { }
    }

    EventLoop& m_loop;
    ChildServer m_server;
    const Completion m_completion;
    ServerRunOutcome m_outcome;
    EventLoop::Source m_end;
    EventLoop::Source m_deadline;
};

RequestRunner::RequestRunner(EventLoop& loop)
    : m_loop(loop)
{
}

RequestRunner::~RequestRunner()
{
    for (Run& run : m_runs)
        run.kill();
    for (Run& run : m_runs)
        run.complete();
}

void RequestRunner::start(ServerRunOptions options, Completion completion)
{
    auto server = ChildServer::start(options);
    if (!server)
        return completion(server.error());
    m_runs.emplace_front(
        m_loop, *std::move(server), std::move(options.standardErrorCopy), std::move(completion));
    const auto run = m_runs.begin();
    const auto watched = run->watch(options.timeout, [this, run] {
        Runs ended;
        ended.splice(ended.begin(), m_runs, run);
        run->complete();
    });
    if (watched)
        return;
    Runs failed;
    failed.splice(failed.begin(), m_runs, run);
    run->fail(watched.error());
}

Result<ServerRunOutcome> runServer(ServerRunOptions options)
{
    EventLoop loop = TDW_TRY(EventLoop::create());
    std::optional<Result<ServerRunOutcome>> result;
    RequestRunner runner(loop);
    runner.start(
        std::move(options), [&](Result<ServerRunOutcome> outcome) { result = std::move(outcome); });
    (void)loop.runUntil([&] { return result.has_value(); });
    return *std::move(result);
}

} // namespace tdw
