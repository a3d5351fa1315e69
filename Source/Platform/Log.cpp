#include "Platform/Log.h"

#include "Platform/FileHandle.h"
#include "Platform/Text.h"

// Where in this file a message is passed on helps nobody.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <span>
#include <utility>

namespace tdw {

Log::Log(std::string subsystem, std::string category)
    : m_subsystem(std::move(subsystem))
    , m_category(std::move(category))
{
}

void Log::debug(std::string_view message) const
{
    (void)sendToJournal(LOG_DEBUG, message);
}

void Log::info(std::string_view message) const
{
    (void)sendToJournal(LOG_INFO, message);
}

void Log::normal(std::string_view message) const
{
    (void)sendToJournal(LOG_NOTICE, message);
}

void Log::error(std::string_view message) const
{
    if (sendToJournal(LOG_ERR, message))
        return;
    const std::string line = withControlCharactersEscaped(
                                 m_subsystem + " (" + m_category + "): " + std::string(message))
        + "\n";
    // There is nobody left to tell about a failure here.
    (void)writeToDescriptor(STDERR_FILENO, std::as_bytes(std::span(line)));
}

bool Log::sendToJournal(int priority, std::string_view message) const
{
    // The library calls it a success when there is no journal.
    if (::access("/run/systemd/journal/socket", W_OK) != 0)
        return false;
    std::array fields {
        "SUBSYSTEM=" + m_subsystem,
        "CATEGORY=" + m_category,
        "PRIORITY=" + std::to_string(priority),
        "MESSAGE=" + std::string(message),
    };
    std::array<iovec, fields.size()> vectors {};
    for (std::size_t i = 0; i < fields.size(); ++i)
        vectors.at(i) = { fields.at(i).data(), fields.at(i).size() };
    return ::sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size())) >= 0;
}

} // namespace tdw
