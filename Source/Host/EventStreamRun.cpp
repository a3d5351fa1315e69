#include "Host/EventStreamRun.h"

#include "Host/ChildServer.h"
#include "Host/ServerEnvelope.h"
#include "Host/TDWServerInvocation.h"
#include "Interfaces/TDWDeviceEvent.h"
#include "Support/LineReader.h"

#include <mutex>
#include <string_view>
#include <utility>

namespace tdw {

namespace {

/// The last bytes of a stream, in bounded memory.
class StreamTail {
public:
    explicit StreamTail(std::size_t limit)
        : m_limit(limit)
    {
    }

    void append(std::string_view bytes)
    {
        m_bytes += bytes;
        // Only when as much goes as stays, so that the moving is linear in the bytes.
        if (m_bytes.size() >= 2 * m_limit)
            m_bytes.erase(0, m_bytes.size() - m_limit);
    }

    const std::string& bytes() const { return m_bytes; }

private:
    const std::size_t m_limit;
    std::string m_bytes;
};

} // namespace

/// A run from launch to completion. Kept alive by the two things that it waits for, the process and
/// the lines; the later one of them completes it.
class EventStreamRun::Session : public std::enable_shared_from_this<Session> {
public:
    Session(EventStreamOptions options, std::shared_ptr<EventStreamRun> run, ServerStream output,
        ServerStream standardError)
        : m_options(std::move(options))
        , m_run(std::move(run))
        , m_standardError(std::move(standardError))
        , m_reader(output.takeReader())
    {
    }

    /// Errors: something cannot be watched; then nothing goes on.
    Result<void> begin(EventLoop& loop)
    {
        m_end = TDW_TRY(loop.whenReadable(
            m_run->m_process->descriptor(), [self = shared_from_this()] { self->processEnded(); }));
        TDW_TRY(m_standardError.watch(loop, [this] { readStandardError(); }));
        return m_reader.startReadingLinesWithEncoding(
            StringEncoding::Utf8, m_options.callbackQueue,
            [this](FileHandle&, const std::string& line, bool&) { take(line); },
            [self = shared_from_this()] { self->complete(); });
    }

    /// Lets go of what could not be begun; the server ends with the run.
    void giveUp() { m_end = {}; }

private:
    void take(const std::string& line)
    {
        if (m_options.envelope == EventStreamOptions::Envelope::OnEitherStream
            && !parseDeviceEvent(line))
            m_otherLines.append(line + '\n');
        if (m_options.lineHandler)
            m_options.lineHandler(line);
    }

    void processEnded()
    {
        const auto self = shared_from_this();
        m_end = {};
        m_termination = m_run->reap();
        constexpr std::size_t kChunks = ChildServer::kLeftoverLimit / ServerStream::kChunkBytes;
        for (std::size_t i = 0; i < kChunks && readStandardError(); ++i) { }
        m_standardError = ServerStream(FileHandle());
        m_reader.finishReadingLines();
        complete();
    }

    bool readStandardError()
    {
        ServerStream::Chunk chunk;
        const auto bytes = m_standardError.read(chunk);
        m_errorTail.append({ reinterpret_cast<const char*>(bytes.data()), bytes.size() });
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
            [handler = std::move(m_options.completionHandler), error = errorOfRun(),
                queue = m_options.callbackQueue] { handler(error); });
    }

    std::optional<Error> errorOfRun() const
    {
        if (m_termination.isKnown && m_termination.status == 0)
            return std::nullopt;
        for (const StreamTail* stream : { &m_errorTail, &m_otherLines }) {
            if (const auto envelope = envelopeAmong(stream->bytes()))
                return errorInEnvelope(*envelope);
        }
        // Where the status is lost, a server that wrote no error has not failed.
        if (!m_termination.isKnown)
            return std::nullopt;
        // What stands on standard error is read by then, so that no text is left for a message.
        return errorInEnvelope(envelopeOfRun(
            m_options.serverName, std::nullopt, m_termination, [] { return Data(); }));
    }

    EventStreamOptions m_options;
    const std::shared_ptr<EventStreamRun> m_run;

    std::mutex m_mutex;
    int m_pending = 2; // belongs to the mutex

    // The loop's thread uses these, and the one that completes the run after it.
    EventLoop::Source m_end;
    ServerStream m_standardError;
    StreamTail m_errorTail { kStandardErrorTailLimit };
    Termination m_termination;

    // The callback queue uses this, and the thread that completes the run after it.
    StreamTail m_otherLines { kStandardErrorTailLimit };
    LineReader m_reader;
};

Result<std::shared_ptr<EventStreamRun>> EventStreamRun::start(
    EventLoop& loop, EventStreamOptions options)
{
    std::optional<Error> error;
    auto executable = TDWValidateServerExecutable(options.serverName, options.bundle, error);
    if (!executable)
        return *error;
    ChildServer server = TDW_TRY(ChildServer::start(
        { *std::move(executable), options.serverName, std::move(options.arguments) }));
    std::shared_ptr<EventStreamRun> run(new EventStreamRun(std::move(server.process)));
    const auto session = std::make_shared<Session>(
        std::move(options), run, std::move(server.output), std::move(server.standardError));
    if (const auto begun = session->begin(loop); !begun) {
        session->giveUp();
        return begun.error();
    }
    return run;
}

EventStreamRun::EventStreamRun(Process process)
    : m_identifier(process.identifier())
    , m_process(std::move(process))
{
}

void EventStreamRun::sendSignal(int signalNumber)
{
    const std::lock_guard lock(m_mutex);
    if (m_process)
        m_process->sendSignal(signalNumber);
}

bool EventStreamRun::hasEnded() const
{
    const std::lock_guard lock(m_mutex);
    return !m_process;
}

Termination EventStreamRun::reap()
{
    const std::lock_guard lock(m_mutex);
    const Termination termination = m_process->waitUntilExit();
    m_process.reset();
    return termination;
}

} // namespace tdw
