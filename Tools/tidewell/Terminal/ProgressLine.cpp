#include "Terminal/ProgressLine.h"

#include "Terminal/Screen.h"

#include <unistd.h>

namespace tdw::cli {

namespace {

constexpr std::string_view kRedrawLine = "\r\x1b[K";

} // namespace

ProgressLine::ProgressLine(const Console& console)
    : m_console(console)
{
}

void ProgressLine::show(std::string_view message, std::string_view remark)
{
    if (m_console.canRedraw()) {
        // A line that wraps could not be replaced.
        const std::string line = std::string(message) + " " + std::string(remark);
        m_console.say(
            std::string(kRedrawLine) + line.substr(0, sizeOfTerminal(STDERR_FILENO).columns - 1));
    } else if (message != m_shown) {
        m_console.say(std::string(message) + "\n");
    }
    m_shown = message;
}

void ProgressLine::clear()
{
    if (m_console.canRedraw() && !m_shown.empty())
        m_console.say(kRedrawLine);
    m_shown.clear();
}

} // namespace tdw::cli
