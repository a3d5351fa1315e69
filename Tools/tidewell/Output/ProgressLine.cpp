#include "Output/ProgressLine.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace tdw::cli {

namespace {

constexpr std::string_view kClearLine = "\r\x1b[K";

/// A line that wraps could not be taken back.
std::size_t columnsOfTerminal()
{
    constexpr std::size_t kUsual = 80;
    winsize size {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return kUsual;
    return size.ws_col;
}

} // namespace

ProgressLine::ProgressLine(const Console& console)
    : m_console(console)
{
}

void ProgressLine::show(std::string_view message, std::string_view remark)
{
    if (m_console.canRedraw()) {
        const std::string line = std::string(message) + " " + std::string(remark);
        m_console.say(std::string(kClearLine) + line.substr(0, columnsOfTerminal() - 1));
    } else if (message != m_shown) {
        m_console.say(std::string(message) + "\n");
    }
    m_shown = message;
}

void ProgressLine::clear()
{
    if (m_console.canRedraw() && !m_shown.empty())
        m_console.say(kClearLine);
    m_shown.clear();
}

} // namespace tdw::cli
