#include "Host/StreamingServerRun.h"

#include "Host/ServerEnvelope.h"
#include "Host/ServerProcess.h"
#include "Host/TDWServerInvocation.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/PropertyList.h"
#include "Platform/Value.h"
#include "Support/LineReader.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

namespace tdw {

namespace {

/// The last bytes of a stream, in bounded memory.
class StreamTail {
public:
    void append(std::span<const std::byte> bytes)
    {
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        // Only when as much goes as stays, so that the moving is linear in the bytes.
        if (m_bytes.size() >= 2 * kStandardErrorTailLimit)
            m_bytes.erase(m_bytes.begin(),
                m_bytes.end() - static_cast<std::ptrdiff_t>(kStandardErrorTailLimit));
    }

    const Data& bytes() const { return m_bytes; }

private:
    Data m_bytes;
};

/// The envelope that a server wrote to standard error: all of it, or what stands behind the
/// warnings that the server and the device libraries write there as well. Where there is none, all
/// of it again.
Data envelopeIn(const Data& standardError)
{
    constexpr std::string_view kBegin = "<?xml";
    constexpr std::string_view kEnd = "</plist>";
    const std::string_view text(
        reinterpret_cast<const char*>(standardError.data()), standardError.size());
    // Neither can stand in a text inside the document, where "<" is written as an entity.
    const std::size_t begin = text.rfind(kBegin);
    const std::size_t end = begin == std::string_view::npos ? begin : text.find(kEnd, begin);
    if (end == std::string_view::npos)
        return standardError;
    const auto document = std::span(standardError).subspan(begin, end + kEnd.size() - begin);
    return Data(document.begin(), document.end());
}

/// The error of a run that ended with a status other than 0.
std::optional<Error> errorOfRun(
    const std::string& serverName, std::int32_t status, const Data& standardError)
{
    // What stands on standard error is read by then, so that no text is left for a message.
    const Value envelope
        = envelopeOfRun(serverName, envelopeIn(standardError), status, [] { return Data(); });
    std::optional<Error> error;
    (void)TDWResponseUnwrap(envelope, error);
    return error;
}

} // namespace

/// A run from launch to completion. Kept alive by the two things that it waits for, the process and
/// the lines; the later one of them completes it.
class StreamingSession : public std::enable_shared_from_this<StreamingSession> {
public:
    StreamingSession(StreamingServerOptions options, std::shared_ptr<StreamingServerRun> run,
        FileHandle output, FileHandle standardError)
        : m_options(std::move(options))
        , m_run(std::move(run))
        , m_reader(std::move(output))
        , m_standardError(std::move(standardError))
    {
    }

    /// Errors: standard output cannot be watched; then nothing goes on.
    Result<void> start()
    {
        TDW_TRY(m_reader.startReadingLinesWithEncoding(
            StringEncoding::Utf8, m_options.callbackQueue,
            [handler = m_options.lineHandler](FileHandle&, const std::string& line, bool&) {
                if (handler)
                    handler(line);
            },
            [self = shared_from_this()] { self->complete(); }));
        // The queue goes along, so that its last handle never makes its owner wait for the server.
        m_options.waitQueue.async(
            [self = shared_from_this(), queue = m_options.waitQueue] { self->waitForEnd(); });
        return {};
    }

private:
    void waitForEnd()
    {
        while (!waitForSomething())
            readStandardError();
        const Termination termination = m_run->reap();
        for (std::size_t i = 0; i < kLeftoverLimit / ServerStream::kChunkBytes; ++i) {
            if (!readStandardError())
                break;
        }
        if (termination.status != 0)
            m_error = errorOfRun(m_options.serverName, termination.status, m_tail.bytes());
        m_reader.finishReadingLines();
        complete();
    }

    /// Waits until standard error has something or the process has ended; says whether the latter.
    bool waitForSomething() const
    {
        std::array entries { pollfd { m_run->m_exitDescriptor, POLLIN, 0 },
            m_standardError.interest() };
        return poll(entries.data(), entries.size(), -1) > 0 && entries[0].revents != 0;
    }

    bool readStandardError()
    {
        ServerStream::Chunk chunk;
        const auto bytes = m_standardError.read(chunk);
        m_tail.append(bytes);
        return !bytes.empty();
    }

    /// Called when the process is over, and when the lines are.
    void complete()
    {
        {
            const std::lock_guard lock(m_mutex);
            if (--m_pending > 0)
                return;
        }
        if (!m_options.completionHandler)
            return;
        m_options.callbackQueue.async(
            [handler = std::move(m_options.completionHandler), error = std::move(m_error),
                queue = m_options.callbackQueue] { handler(error); });
    }

    StreamingServerOptions m_options;
    const std::shared_ptr<StreamingServerRun> m_run;
    LineReader m_reader;

    // Only the waiting thread uses these, and whoever completes the run after it.
    ServerStream m_standardError;
    StreamTail m_tail;
    std::optional<Error> m_error;

    std::mutex m_mutex;
    int m_pending = 2; // belongs to the mutex
};

StreamingServerRun::StreamingServerRun(Process process)
    : m_identifier(process.identifier())
    , m_exitDescriptor(process.descriptor())
    , m_process(std::move(process))
{
}

void StreamingServerRun::sendSignal(int signalNumber)
{
    const std::lock_guard lock(m_mutex);
    if (m_process)
        m_process->sendSignal(signalNumber);
}

Termination StreamingServerRun::reap()
{
    const std::lock_guard lock(m_mutex);
    const Termination termination = m_process->waitUntilExit();
    m_process.reset();
    return termination;
}

Result<std::shared_ptr<StreamingServerRun>> startStreamingServer(StreamingServerOptions options)
{
    std::optional<Error> error;
    auto executable = TDWValidateServerExecutable(options.serverName, options.bundle, error);
    if (!executable)
        return *error;
    ServerProcess server = TDW_TRY(
        launchServer({ *std::move(executable), options.serverName, std::move(options.arguments) }));
    auto run = std::make_shared<StreamingServerRun>(std::move(server.process));
    const auto session = std::make_shared<StreamingSession>(
        std::move(options), run, std::move(server.output), std::move(server.standardError));
    // Where that fails, the server is killed with the run, before any handler is called.
    TDW_TRY(session->start());
    return run;
}

} // namespace tdw
