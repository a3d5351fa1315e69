#include "Host/ServerRun.h"

#include "Platform/FileHandle.h"

#include <fcntl.h>
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
constexpr std::size_t kReadChunkBytes = std::size_t { 64 } * 1024;

/// Once a server has ended, at most what its pipe could still hold belongs to it.
constexpr std::size_t kLeftoverLimit = std::size_t { 1 } << 20;

Result<void> makeNonBlocking(const FileHandle& handle)
{
    const int flags = fcntl(handle.descriptor(), F_GETFL);
    if (flags < 0 || fcntl(handle.descriptor(), F_SETFL, flags | O_NONBLOCK) < 0)
        return Error::posix(errno, "Cannot make a pipe non-blocking");
    return {};
}

/// The reading end of one of the server's streams.
class Stream {
public:
    explicit Stream(FileHandle reader)
        : m_reader(std::move(reader))
    {
    }

    /// What `poll` is to wait for; a closed descriptor (-1) is passed over by it.
    pollfd interest() const { return { m_reader.descriptor(), POLLIN, 0 }; }

    /// Reads once, without waiting; an empty result says that there is nothing now.
    std::span<const std::byte> read()
    {
        if (!m_reader.isOpen())
            return {};
        const ssize_t count = ::read(m_reader.descriptor(), m_chunk.data(), m_chunk.size());
        if (count > 0)
            return std::span(m_chunk).first(static_cast<std::size_t>(count));
        if (count == 0 || (errno != EAGAIN && errno != EINTR))
            m_reader.close();
        return {};
    }

private:
    FileHandle m_reader;
    std::array<std::byte, kReadChunkBytes> m_chunk {};
};

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
    Run(Process process, Stream output, Stream standardError, FileHandle standardErrorCopy)
        : m_process(std::move(process))
        , m_output(std::move(output))
        , m_standardError(std::move(standardError))
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
        for (std::size_t i = 0; i < kLeftoverLimit / kReadChunkBytes && readStandardError(); ++i) {
        }
    }

    Process m_process;
    Stream m_output;
    Stream m_standardError;
    CopyWriter m_copy;
    ServerRunOutcome m_outcome;
};

} // namespace

Result<ServerRunOutcome> runServer(ServerRunOptions options)
{
    Pipe output = TDW_TRY(Pipe::create());
    Pipe standardError = TDW_TRY(Pipe::create());
    TDW_TRY(makeNonBlocking(output.reader));
    TDW_TRY(makeNonBlocking(standardError.reader));
    const auto deadline = options.timeout ? Clock::now() + *options.timeout : kNever;

    LaunchOptions launch;
    launch.executable = std::move(options.executable);
    launch.programName = std::move(options.serverName);
    launch.arguments = std::move(options.arguments);
    launch.standardOutput = output.writer.descriptor();
    launch.standardError = standardError.writer.descriptor();
    launch.ownProcessGroup = true;
    Process process = TDW_TRY(Process::launch(launch));
    // From here on the server alone holds the writing ends, so that its end shows in them.
    output.writer.close();
    standardError.writer.close();

    return Run(std::move(process), Stream(std::move(output.reader)),
        Stream(std::move(standardError.reader)), std::move(options.standardErrorCopy))
        .finish(deadline);
}

} // namespace tdw
