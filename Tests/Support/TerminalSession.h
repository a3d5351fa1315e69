#pragma once

#include "EndToEnd/ToolRun.h"
#include "Platform/System/FileHandle.h"
#include "Platform/System/Process.h"
#include "Support/Testing.h"

#include <sys/ioctl.h>
#include <termios.h>

#include <stdexcept>

/// The controlling end of a new terminal. Where there are none, the test ends here and says so,
/// instead of waiting for output that cannot come.
inline tdw::FileHandle openTerminal()
{
    tdw::FileHandle terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal.isOpen() || grantpt(terminal.descriptor()) != 0
        || unlockpt(terminal.descriptor()) != 0
        || access(ptsname(terminal.descriptor()), R_OK | W_OK) != 0)
        throw std::runtime_error("this test needs a terminal, and /dev/pts has none");
    return terminal;
}

/// A pseudo-terminal with the tool as its session.
class TerminalSession {
public:
    TerminalSession(
        const std::vector<std::string>& arguments, unsigned short lines, unsigned short columns)
        : m_terminal(openTerminal())
    {
        m_side = tdw::FileHandle(
            open(ptsname(m_terminal.descriptor()), O_RDWR | O_NOCTTY | O_CLOEXEC));
        resize(lines, columns);
        tcgetattr(m_side.descriptor(), &m_before);
        tdw::LaunchOptions options;
        options.executable = "/usr/bin/setsid";
        options.arguments = { "--ctty", "--wait", kBuild / "bin/tidewell" };
        options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
        options.environment = { { "TERM", "xterm" }, { "LC_ALL", "C.UTF-8" } };
        options.standardInput = m_side.descriptor();
        options.standardOutput = m_side.descriptor();
        options.standardError = m_log.writer.descriptor();
        auto process = tdw::Process::launch(options);
        EXPECT_TRUE(process);
        m_process = *std::move(process);
    }

    void resize(unsigned short lines, unsigned short columns) const
    {
        const winsize size { lines, columns, 0, 0 };
        EXPECT_EQ(ioctl(m_terminal.descriptor(), TIOCSWINSZ, &size), 0);
    }

    void type(std::string_view keys) const
    {
        EXPECT_TRUE(
            tdw::writeToDescriptor(m_terminal.descriptor(), std::as_bytes(std::span(keys))));
    }

    /// Reads on until a passage has come, or the end, for a bounded time.
    /// @return what has come since the last time
    std::string readUntil(const std::string& passage)
    {
        std::string text;
        while (text.find(passage) == std::string::npos) {
            pollfd entries[] = { { m_terminal.descriptor(), POLLIN, 0 },
                { m_process->descriptor(), POLLIN, 0 } };
            if (poll(entries, 2, 20'000) <= 0) {
                ADD_FAILURE() << "\"" << passage << "\" does not come: " << text;
                break;
            }
            char character = 0;
            if (entries[0].revents == 0 || read(m_terminal.descriptor(), &character, 1) != 1)
                break;
            text += character;
        }
        return text;
    }

    tdw::Termination finish()
    {
        const auto end = m_process->waitUntilExit(std::chrono::seconds(20));
        EXPECT_TRUE(end) << "it does not end";
        return end.value_or(tdw::Termination {});
    }

    /// Whether the terminal's mode is as it was, and nothing is left in its input.
    bool isAsBefore() const
    {
        termios after {};
        tcgetattr(m_side.descriptor(), &after);
        const bool isModeKept
            = m_before.c_lflag == after.c_lflag && m_before.c_iflag == after.c_iflag;
        // Only lines count as input unless the terminal is told to hand bytes out.
        after.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        tcsetattr(m_side.descriptor(), TCSANOW, &after);
        int unread = 0;
        ioctl(m_side.descriptor(), FIONREAD, &unread);
        return isModeKept && unread == 0;
    }

private:
    tdw::FileHandle m_terminal;
    tdw::FileHandle m_side;
    tdw::Pipe m_log = *tdw::Pipe::create();
    termios m_before {};
    std::optional<tdw::Process> m_process;
};
