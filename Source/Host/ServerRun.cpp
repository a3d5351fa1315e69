#include "Host/ServerRun.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

namespace tdw {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kNever = Clock::time_point::max();

/// A longer wait is cut into pieces of this length, which fits what `poll` takes.
constexpr std::chrono::milliseconds kLongestWait = 60s;

/// What a typical envelope needs, and where the buffer starts.
constexpr std::size_t kInitialOutputCapacity = 1496;

/// Passes bytes on to a pipe as it takes them, and keeps the rest for later.
class CopyWriter {
public:
    explicit CopyWriter(FileHandle writer)
        : m_writer(std::move(writer))
    {
        if (m_writer.isOpen() && !makeNonBlocking(m_writer))
            m_writer.close();
    }

    pollfd interest() const
    {
        return { m_backlog.empty() ? -1 : m_writer.descriptor(), POLLOUT, 0 };
    }

    void add(std::span<const std::byte> bytes)
    {
        const std::size_t room
            = kStandardErrorLimit - std::min(kStandardErrorLimit, m_backlog.size());
        if (m_writer.isOpen())
            m_backlog.insert(m_backlog.end(), bytes.begin(),
                bytes.begin() + static_cast<std::ptrdiff_t>(std::min(room, bytes.size())));
        flush();
    }

    void flush()
    {
        while (m_writer.isOpen() && !m_backlog.empty()) {
            const ssize_t count
                = ::write(m_writer.descriptor(), m_backlog.data(), m_backlog.size());
            if (count > 0)
                m_backlog.erase(m_backlog.begin(), m_backlog.begin() + count);
            else if (errno == EAGAIN)
                return;
            else if (errno != EINTR)
                m_writer.close();
        }
    }

private:
    FileHandle m_writer;
    Data m_backlog;
};

/// The server's process with its two streams, from its start to its end.
class Run {
public:
    Run(ServerProcess server, FileHandle standardErrorCopy)
        : m_process(std::move(server.process))
        , m_output(std::move(server.output))
        , m_standardError(std::move(server.standardError))
        , m_copy(std::move(standardErrorCopy))
    {
        m_outcome.output.reserve(kInitialOutputCapacity);
    }

    ServerRunOutcome finish(Clock::time_point deadline)
    {
        while (!waitForSomething(deadline)) {
            readOutput();
            readStandardError();
            m_copy.flush();
            if (Clock::now() >= deadline) {
                m_outcome.timedOut = true;
                m_process.sendSignal(SIGKILL);
                deadline = kNever;
            }
        }
        m_outcome.termination = m_process.waitUntilExit();
        readLeftovers();
        return std::move(m_outcome);
    }

private:
    /// Waits until a stream has something, the process has ended or the deadline is there; says
    /// whether the process has ended.
    bool waitForSomething(Clock::time_point deadline) const
    {
        std::array entries { pollfd { m_process.descriptor(), POLLIN, 0 }, m_output.interest(),
            m_standardError.interest(), m_copy.interest() };
        int timeout = -1;
        if (deadline != kNever) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            timeout = static_cast<int>(std::clamp(left, 0ms, kLongestWait).count());
        }
        // An interruption is like a time-out: the caller looks around and comes back.
        return poll(entries.data(), entries.size(), timeout) > 0 && entries[0].revents != 0;
    }

    bool readOutput()
    {
        const auto bytes = m_output.read();
        m_outcome.output.insert(m_outcome.output.end(), bytes.begin(), bytes.end());
        return !bytes.empty();
    }

    bool readStandardError()
    {
        const auto bytes = m_standardError.read();
        const std::size_t room = kStandardErrorLimit - m_outcome.standardError.size();
        const auto kept = bytes.first(std::min(room, bytes.size()));
        m_outcome.standardError.insert(m_outcome.standardError.end(), kept.begin(), kept.end());
        m_copy.add(bytes);
        return !bytes.empty();
    }

    void readLeftovers()
    {
        const std::size_t limit = m_outcome.output.size() + kLeftoverLimit;
        while (m_outcome.output.size() < limit && readOutput()) { }
        for (std::size_t i = 0;
             i < kLeftoverLimit / ServerStream::kChunkBytes && readStandardError(); ++i) { }
    }

    Process m_process;
    ServerStream m_output;
    ServerStream m_standardError;
    CopyWriter m_copy;
    ServerRunOutcome m_outcome;
};

} // namespace

Result<ServerRunOutcome> runServer(ServerRunOptions options)
{
    const auto deadline = options.timeout ? Clock::now() + *options.timeout : kNever;
    ServerProcess server = TDW_TRY(launchServer(options));
    return Run(std::move(server), std::move(options.standardErrorCopy)).finish(deadline);
}

} // namespace tdw
