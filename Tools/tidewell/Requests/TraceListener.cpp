#include "Requests/TraceListener.h"

#include "Client/ServiceMessages.h"
#include "Platform/System/RuntimeDirectory.h"
#include "Platform/Values/Utf8.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

namespace tdw::cli {

namespace {

constexpr std::string_view kPrefix = "trace-";

/// More than any command takes; a trace that grows without end is cut there.
constexpr std::size_t kMostSteps = 100'000;

/// Removes what listeners that were killed have left.
void removeLeftovers(const std::filesystem::path& directory)
{
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename();
        pid_t process = 0;
        if (name.starts_with(kPrefix)
            && std::from_chars(name.data() + kPrefix.size(), name.data() + name.size(), process).ec
                == std::errc()
            && process > 0 && ::kill(process, 0) != 0 && errno == ESRCH)
            std::filesystem::remove(entry.path(), error);
    }
}

} // namespace

Result<std::unique_ptr<TraceListener>> TraceListener::start(Handler handler)
{
    const auto directory = TDW_TRY(runtimeDirectory(tidewellService().directory));
    removeLeftovers(directory);
    const auto path = directory / (std::string(kPrefix) + std::to_string(::getpid()) + ".sock");
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path)
        return Error::posix(ENAMETOOLONG, "Cannot collect a trace at " + path.string());
    path.native().copy(address.sun_path, sizeof address.sun_path - 1);
    FileHandle socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    (void)::unlink(path.c_str());
    if (!socket.isOpen()
        || ::bind(socket.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address)
            != 0
        || ::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0)
        return Error::posix(errno, "Cannot collect a trace at " + path.string());
    std::unique_ptr<TraceListener> listener(
        new TraceListener(std::move(socket), path, TDW_TRY(Pipe::create()), std::move(handler)));
    setTraceAddress(path);
    return listener;
}

TraceListener::TraceListener(
    FileHandle socket, std::filesystem::path path, Pipe end, Handler handler)
    : m_socket(std::move(socket))
    , m_path(std::move(path))
    , m_end(std::move(end))
    , m_handler(std::move(handler))
    , m_thread([this] { listen(); })
{
}

TraceListener::~TraceListener()
{
    stop();
}

void TraceListener::stop()
{
    if (!m_thread.joinable())
        return;
    // Other threads may still send steps: they find no listener.
    (void)::unlink(m_path.c_str());
    m_end.writer.close();
    m_thread.join();
}

std::vector<TraceEvent> TraceListener::steps()
{
    // What has been told stands in the socket at least.
    while (take()) { }
    const std::lock_guard lock(m_lock);
    std::vector<TraceEvent> result = m_ended;
    result.insert(result.end(), m_underWay.begin(), m_underWay.end());
    return result;
}

void TraceListener::listen()
{
    pollfd entries[]
        = { { m_socket.descriptor(), POLLIN, 0 }, { m_end.reader.descriptor(), POLLIN, 0 } };
    while (entries[1].revents == 0) {
        if (::poll(entries, std::size(entries), -1) < 0 && errno != EINTR)
            return;
        while (take()) { }
    }
}

bool TraceListener::take()
{
    std::optional<TraceEvent> event;
    {
        // Held from the socket to the list, so that no thread misses a step that another one has
        // taken.
        const std::lock_guard lock(m_lock);
        std::array<char, 1024> datagram {};
        const ssize_t count = ::recv(m_socket.descriptor(), datagram.data(), datagram.size(), 0);
        if (count < 0)
            return false;
        event = traceEventIn(std::string_view(datagram.data(), static_cast<std::size_t>(count)));
        if (!event)
            return true;
        if (!event->end) {
            if (m_underWay.size() < kMostSteps)
                m_underWay.push_back(*event);
            return true;
        }
        std::erase_if(m_underWay, [&](const TraceEvent& begun) {
            return begun.process == event->process && begun.start == event->start
                && begun.step == event->step && begun.subject == event->subject;
        });
        if (m_ended.size() < kMostSteps)
            m_ended.push_back(*event);
    }
    if (m_handler)
        m_handler(*event);
    return true;
}

std::string traceLine(const TraceEvent& event, TraceEvent::Clock::time_point start)
{
    std::array<char, 32> offset {};
    const std::chrono::duration<double> passed = event.end.value_or(event.start) - start;
    (void)std::snprintf(offset.data(), offset.size(), "%+.3f ", passed.count());
    return offset.data() + withControlCharactersEscaped(traceText(event)) + "\n";
}

} // namespace tdw::cli
