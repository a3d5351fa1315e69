#include "Terminal/TerminalMode.h"

#include "Terminal/Colour.h"

#include <sys/stat.h>
#include <unistd.h>

namespace tdw::cli {

namespace {

bool ownsTerminal()
{
    struct stat input { };
    struct stat output { };
    return isCapableTerminal(STDIN_FILENO) && isCapableTerminal(STDOUT_FILENO)
        && fstat(STDIN_FILENO, &input) == 0 && fstat(STDOUT_FILENO, &output) == 0
        && input.st_rdev == output.st_rdev && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

} // namespace

std::unique_ptr<RawTerminalMode> RawTerminalMode::create(Signals signals)
{
    termios mode {};
    if (!ownsTerminal() || tcgetattr(STDIN_FILENO, &mode) != 0)
        return nullptr;
    std::unique_ptr<RawTerminalMode> result(new RawTerminalMode(mode));
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    if (signals == Signals::AsBytes)
        mode.c_lflag &= ~static_cast<tcflag_t>(ISIG);
    mode.c_cc[VMIN] = 0;
    mode.c_cc[VTIME] = 0;
    return tcsetattr(STDIN_FILENO, TCSADRAIN, &mode) == 0 ? std::move(result) : nullptr;
}

RawTerminalMode::~RawTerminalMode()
{
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_previous);
}

} // namespace tdw::cli
