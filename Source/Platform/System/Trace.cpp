#include "Platform/System/Trace.h"

#include "Platform/System/FileHandle.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <memory>

namespace tdw {

namespace {

constexpr char kSeparator = '\t';
constexpr std::size_t kFields = 6;

/// How long a step waits for a listener whose queue is full.
constexpr timeval kPatience { .tv_sec = 0, .tv_usec = 100'000 };

std::string& mutableAddress()
{
    // Never destroyed: threads tell their steps up to the end.
    static std::string* const address = [] {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes its environment
        const char* variable = std::getenv(kTraceVariable);
        return std::make_unique<std::string>(variable ? variable : "").release();
    }();
    return *address;
}

/// Whether the listener of this process's own trace has gone.
std::atomic<bool> gListenerIsGone = false;

bool send(const std::string& path, const std::string& datagram)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    path.copy(address.sun_path, path.size());
    const FileHandle socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    (void)::setsockopt(socket.descriptor(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
    return socket.isOpen()
        && ::sendto(socket.descriptor(), datagram.data(), datagram.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&address), sizeof address)
        >= 0;
}

void tell(const std::string& path, const TraceEvent& event)
{
    const bool isOwn = path == traceAddress();
    if (isOwn && gListenerIsGone)
        return;
    if (!send(path, traceDatagram(event)) && isOwn)
        gListenerIsGone = true;
}

std::string ticks(TraceEvent::Clock::time_point time)
{
    return std::to_string(
        std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count());
}

std::optional<std::int64_t> number(std::string_view text)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

TraceEvent::Clock::time_point timeAt(std::int64_t ticks)
{
    return TraceEvent::Clock::time_point(
        std::chrono::duration_cast<TraceEvent::Clock::duration>(std::chrono::nanoseconds(ticks)));
}

/// The beginning of a UDID, which is enough to tell devices apart; other subjects as they are.
std::string shortened(const std::string& subject)
{
    constexpr std::size_t kShown = 9;
    constexpr std::size_t kShortestUdid = 24;
    return subject.size() < kShortestUdid ? subject : subject.substr(0, kShown) + "…";
}

} // namespace

// process | step | subject | start | end, or nothing | code
std::string traceDatagram(const TraceEvent& event)
{
    std::string text = std::to_string(event.process);
    const std::string fields[] = { event.step, event.subject, ticks(event.start),
        event.end ? ticks(*event.end) : std::string(), std::to_string(event.code) };
    for (const std::string& field : fields)
        (text += kSeparator) += field;
    return text;
}

std::optional<TraceEvent> traceEventIn(std::string_view datagram)
{
    std::array<std::string_view, kFields> fields;
    for (std::size_t i = 0; i < kFields; ++i) {
        const auto length = datagram.find(kSeparator);
        if ((length == std::string_view::npos) != (i + 1 == kFields))
            return std::nullopt;
        fields[i] = datagram.substr(0, length);
        datagram.remove_prefix(fields[i].size() + (i + 1 == kFields ? 0 : 1));
    }
    const auto process = number(fields[0]);
    const auto start = number(fields[3]);
    const auto end = number(fields[4]);
    const auto code = number(fields[5]);
    if (!process || !start || !code || (!end && !fields[4].empty()))
        return std::nullopt;
    return TraceEvent { static_cast<pid_t>(*process), std::string(fields[1]),
        std::string(fields[2]), timeAt(*start), end ? std::optional(timeAt(*end)) : std::nullopt,
        *code };
}

std::string traceText(const TraceEvent& event)
{
    std::string text = event.step;
    if (!event.subject.empty())
        text += " " + shortened(event.subject);
    if (!event.end)
        return text + ": not finished";
    const auto duration
        = std::chrono::duration_cast<std::chrono::milliseconds>(*event.end - event.start);
    text += ": " + std::to_string(duration.count()) + " ms";
    return event.code == 0 ? text : text + ", failed (" + std::to_string(event.code) + ")";
}

const std::string& traceAddress()
{
    return mutableAddress();
}

void setTraceAddress(std::string path)
{
    mutableAddress() = std::move(path);
}

TraceStep::TraceStep(const char* step, std::string_view subject, const std::string& address)
{
    if (address.empty())
        return;
    m_address = address;
    m_event.process = ::getpid();
    m_event.step = step;
    m_event.subject = subject;
    m_event.start = TraceEvent::Clock::now();
    tell(m_address, m_event);
}

TraceStep::~TraceStep()
{
    if (m_address.empty())
        return;
    m_event.end = TraceEvent::Clock::now();
    tell(m_address, m_event);
}

} // namespace tdw
