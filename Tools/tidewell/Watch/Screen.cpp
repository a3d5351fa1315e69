#include "Watch/Screen.h"

#include "Watch/BoardText.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>

namespace tdw::cli {

namespace {

// The second screen of the terminal, without a cursor.
constexpr std::string_view kEnter = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view kLeave = "\x1b[?25h\x1b[?1049l";

constexpr std::string_view kHome = "\x1b[H";
constexpr std::string_view kClearLine = "\x1b[K";
constexpr std::string_view kClearBelow = "\x1b[J";

struct Size {
    std::size_t columns = 80;
    std::size_t lines = 24;
};

Size sizeOfTerminal()
{
    winsize size {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return {};
    return { size.ws_col, size.ws_row };
}

} // namespace

Screen::Screen(const Console& console)
    : m_console(console)
{
    enter();
}

Screen::~Screen()
{
    leave();
}

Result<void> Screen::show(std::string_view text)
{
    const Size size = sizeOfTerminal();
    // One write, so that nobody sees half of it. The last line stays empty: a line end there would
    // move everything up.
    std::string frame(kHome);
    const std::size_t lines = std::max<std::size_t>(size.lines, 2) - 1;
    for (const std::string& line : fitted(text, size.columns, lines))
        frame += line + std::string(kClearLine) + "\r\n";
    frame += kClearBelow;
    return m_console.print(frame);
}

void Screen::stopProcess()
{
    leave();
    (void)std::raise(SIGSTOP);
    enter();
}

void Screen::enter()
{
    (void)m_console.print(kEnter);
}

void Screen::leave()
{
    (void)m_console.print(kLeave);
}

} // namespace tdw::cli
