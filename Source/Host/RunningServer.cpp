#include "Host/RunningServer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

namespace tdw {

namespace {

using namespace std::chrono_literals;

/// A longer wait is cut into pieces of this length, which fits what `poll` takes.
constexpr std::chrono::milliseconds kLongestWait = 60s;

/// What a typical envelope needs, and where the buffer starts.
constexpr std::size_t kInitialOutputCapacity = 1496;

} // namespace

CopyWriter::CopyWriter(FileHandle writer)
    : m_writer(std::move(writer))
{
    if (m_writer.isOpen() && !makeNonBlocking(m_writer))
        m_writer.close();
}

pollfd CopyWriter::interest() const
{
    return { m_backlog.empty() ? -1 : m_writer.descriptor(), POLLOUT, 0 };
}

void CopyWriter::add(std::span<const std::byte> bytes)
{
    const std::size_t room = kStandardErrorLimit - std::min(kStandardErrorLimit, m_backlog.size());
    if (m_writer.isOpen())
        m_backlog.insert(m_backlog.end(), bytes.begin(),
            bytes.begin() + static_cast<std::ptrdiff_t>(std::min(room, bytes.size())));
    flush();
}

void CopyWriter::flush()
{
    while (m_writer.isOpen() && !m_backlog.empty()) {
        const ssize_t count = ::write(m_writer.descriptor(), m_backlog.data(), m_backlog.size());
        if (count > 0)
            m_backlog.erase(m_backlog.begin(), m_backlog.begin() + count);
        else if (errno == EAGAIN)
            return;
        else if (errno != EINTR)
            m_writer.close();
    }
}

Result<RunningServer> RunningServer::start(ServerRunOptions options)
{
    const auto deadline = options.timeout ? Clock::now() + *options.timeout : kNever;
    return RunningServer(
        TDW_TRY(launchServer(options)), std::move(options.standardErrorCopy), deadline);
}

RunningServer::RunningServer(
    ServerProcess server, FileHandle standardErrorCopy, Clock::time_point deadline)
    : m_process(std::move(server.process))
    , m_output(std::move(server.output))
    , m_standardError(std::move(server.standardError))
    , m_copy(std::move(standardErrorCopy))
    , m_deadline(deadline)
{
    m_outcome.output.reserve(kInitialOutputCapacity);
}

RunningServer::Interests RunningServer::interests() const
{
    return { pollfd { m_process.descriptor(), POLLIN, 0 }, m_output.interest(),
        m_standardError.interest(), m_copy.interest() };
}

bool RunningServer::advance(const Interests& interests)
{
    if (interests[0].revents != 0) {
        m_outcome.termination = m_process.waitUntilExit();
        readLeftovers();
        return true;
    }
    readOutput();
    readStandardError();
    m_copy.flush();
    if (Clock::now() >= m_deadline) {
        m_outcome.timedOut = true;
        m_deadline = kNever;
        kill();
    }
    return false;
}

void RunningServer::kill()
{
    m_process.sendSignal(SIGKILL);
}

bool RunningServer::readOutput()
{
    ServerStream::Chunk chunk;
    const auto bytes = m_output.read(chunk);
    m_outcome.output.insert(m_outcome.output.end(), bytes.begin(), bytes.end());
    return !bytes.empty();
}

bool RunningServer::readStandardError()
{
    ServerStream::Chunk chunk;
    const auto bytes = m_standardError.read(chunk);
    const std::size_t room = kStandardErrorLimit - m_outcome.standardError.size();
    const auto kept = bytes.first(std::min(room, bytes.size()));
    m_outcome.standardError.insert(m_outcome.standardError.end(), kept.begin(), kept.end());
    m_copy.add(bytes);
    return !bytes.empty();
}

void RunningServer::readLeftovers()
{
    const std::size_t limit = m_outcome.output.size() + kLeftoverLimit;
    while (m_outcome.output.size() < limit && readOutput()) { }
    for (std::size_t i = 0; i < kLeftoverLimit / ServerStream::kChunkBytes && readStandardError();
         ++i) { }
}

int pollTimeoutUntil(RunningServer::Clock::time_point deadline)
{
    if (deadline == RunningServer::kNever)
        return -1;
    const auto left
        = std::chrono::ceil<std::chrono::milliseconds>(deadline - RunningServer::Clock::now());
    return static_cast<int>(std::clamp(left, 0ms, kLongestWait).count());
}

} // namespace tdw
