#include "EndToEnd/RunningTool.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>

#include <csignal>
#include <string>

using namespace tdw;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

/// Reads lines until one holds a passage; returns that one, or the last one.
std::string lineWith(RunningTool& tool, const std::string& passage)
{
    std::string line;
    do {
        line = tool.readLine();
    } while (!line.empty() && line.find(passage) == line.npos);
    return line;
}

/// A terminal with the tool on it.
class Terminal {
public:
    Terminal()
        : m_master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_EQ(grantpt(m_master.descriptor()), 0);
        EXPECT_EQ(unlockpt(m_master.descriptor()), 0);
        resize(24, 100);
    }

    FileHandle end() const
    {
        return FileHandle(open(ptsname(m_master.descriptor()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    }

    void resize(unsigned short lines, unsigned short columns) const
    {
        const winsize size { lines, columns, 0, 0 };
        EXPECT_EQ(ioctl(m_master.descriptor(), TIOCSWINSZ, &size), 0);
    }

    /// Reads until the text ends with a passage, for a bounded time.
    std::string readUntil(const std::string& passage) const
    {
        std::string text;
        pollfd entry { m_master.descriptor(), POLLIN, 0 };
        char character = 0;
        while (!text.ends_with(passage) && poll(&entry, 1, 20'000) == 1
            && read(m_master.descriptor(), &character, 1) == 1)
            text += character;
        return text;
    }

private:
    FileHandle m_master;
};

} // namespace

TEST(WatchCommand, WritesALineForEachChangeAndAsksNoStranger)
{
    const Household devices;
    setenv("LC_ALL", "C.UTF-8", 1);
    RunningTool tool({ "watch" });
    EXPECT_THAT(lineWith(tool, "  watch "), MatchesRegex("  watch 00008301-.* 83 %.*"));
    devices.control(R"({"command":"detach","device":")" + kPhone + R"("})");
    EXPECT_THAT(lineWith(tool, "detached"), HasSubstr(kPhone));
    devices.control(R"({"command":"attach","connection":"usb","device":")" + kPhone + R"("})");
    EXPECT_THAT(lineWith(tool, "Robin"), HasSubstr(" 76 %"));
    EXPECT_THAT(
        devices.control(R"({"command":"log","at":"lockdown","device":")" + kStranger + R"("})"),
        HasSubstr(R"("entries":[])"));
    tool.process->sendSignal(SIGTERM);
    EXPECT_EQ(tool.finish().termination, Termination {});
}

TEST(WatchCommand, RedrawsATableAndGivesTheTerminalBack)
{
    const Household devices;
    setenv("TERM", "xterm", 1);
    const Terminal terminal;
    const FileHandle end = terminal.end();
    RunningTool tool({ "watch" }, end.descriptor());
    EXPECT_THAT(terminal.readUntil("83 %"), StartsWith("\x1b[?1049h\x1b[?25l\x1b[H"));
    terminal.resize(4, 40);
    tool.process->sendSignal(SIGWINCH);
    EXPECT_THAT(terminal.readUntil(" more lines)"), EndsWith("(3 more lines)"));
    tool.process->sendSignal(SIGINT);
    EXPECT_EQ(tool.finish().termination, Termination {});
    EXPECT_THAT(terminal.readUntil("1049l"), EndsWith("\x1b[?25h\x1b[?1049l"));
}
