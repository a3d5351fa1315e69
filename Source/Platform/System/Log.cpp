#include "Platform/System/Log.h"

#include "Platform/System/FileHandle.h"
#include "Platform/Values/Utf8.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

namespace tdw {

namespace {

constexpr std::string_view kJournalSocket = "/run/systemd/journal/socket";

/// A datagram holds more than that; a longer message is cut.
constexpr std::size_t kLongestMessage = std::size_t { 32 } << 10;

/// One field as the journal takes it. A value with a line end needs its length in front, as 64 bits
/// in little-endian order.
std::string journalField(std::string_view name, std::string_view value)
{
    std::string field(name);
    if (value.find('\n') == std::string_view::npos)
        return field.append("=").append(value) += '\n';
    field += '\n';
    for (unsigned shift = 0; shift < 64; shift += 8)
        field += static_cast<char>(std::uint64_t { value.size() } >> shift);
    return field.append(value) += '\n';
}

std::atomic<bool>& isVerbose()
{
    static std::atomic<bool> flag = false;
    return flag;
}

} // namespace

Log::Log(std::string subsystem, std::string category)
    : m_subsystem(std::move(subsystem))
    , m_category(std::move(category))
{
}

void Log::beVerbose()
{
    isVerbose() = true;
}

void Log::debug(std::string_view message) const
{
    log(LOG_DEBUG, message);
}

void Log::info(std::string_view message) const
{
    log(LOG_INFO, message);
}

void Log::notice(std::string_view message) const
{
    log(LOG_NOTICE, message);
}

void Log::error(std::string_view message) const
{
    log(LOG_ERR, message);
}

void Log::log(int priority, std::string_view message) const
{
    const bool isTaken = sendToJournal(priority, message);
    if (!isVerbose() && (isTaken || priority > LOG_ERR))
        return;
    const std::string line = withControlCharactersEscaped(
                                 m_subsystem + " (" + m_category + "): " + std::string(message))
        + "\n";
    // A failure here cannot be reported.
    (void)writeToDescriptor(STDERR_FILENO, std::as_bytes(std::span(line)));
}

bool Log::sendToJournal(int priority, std::string_view message) const
{
    // Written here, because libsystemd takes six more libraries along, which every process that
    // uses this one would load.
    FileHandle socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    kJournalSocket.copy(address.sun_path, sizeof address.sun_path - 1);
    const std::string fields = journalField("SUBSYSTEM", m_subsystem)
        + journalField("CATEGORY", m_category) + journalField("PRIORITY", std::to_string(priority))
        + journalField("MESSAGE", message.substr(0, kLongestMessage));
    return socket.isOpen()
        && ::sendto(socket.descriptor(), fields.data(), fields.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&address), sizeof address)
        >= 0;
}

} // namespace tdw
