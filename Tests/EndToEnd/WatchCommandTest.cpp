#include "EndToEnd/RunningTool.h"
#include "Support/TerminalSession.h"

#include <gmock/gmock.h>

#include <stdlib.h>

#include <chrono>
#include <csignal>
#include <string>

using namespace tdw;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
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

} // namespace

TEST(WatchCommand, WritesALineForEachChangeAndAsksNoUnpairedDevice)
{
    const Household devices;
    setenv("LC_ALL", "C.UTF-8", 1);
    RunningTool tool({ "watch" });
    EXPECT_THAT(lineWith(tool, "  watch "), MatchesRegex("  watch .* 83 %.*"));
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

TEST(WatchCommand, RedrawsATableThatFitsAndGivesTheTerminalBack)
{
    const Household devices;
    TerminalSession terminal({ "watch" }, 24, 80);
    EXPECT_THAT(terminal.readUntil("83 %"), HasSubstr("\x1b[?1049h\x1b[?25l"));
    terminal.resize(4, 40);
    EXPECT_THAT(terminal.readUntil("(1 to 2 of 4)"), HasSubstr("DEVICE"));
    terminal.type("G");
    terminal.readUntil("(3 to 4 of 4)");
    terminal.type("g");
    EXPECT_THAT(terminal.readUntil("(1 to 2 of 4)"), Not(HasSubstr("DEVICE")))
        << "what has not changed is not written again";
    terminal.type("q");
    EXPECT_THAT(terminal.readUntil("1049l"), EndsWith("\x1b[?25h\x1b[?1049l"));
    EXPECT_EQ(terminal.finish(), Termination {});
    EXPECT_TRUE(terminal.isAsBefore());
}

TEST(WatchCommand, EndsAtOnceAndSaysWhatIsWrongWhateverHangs)
{
    const Household devices;
    devices.control(
        R"({"command":"inject-fault","at":"mux","request":"ReadPairRecord","fault":"hang"})");
    for (const char* road : { "--direct", "--verbose" }) {
        RunningTool tool({ "watch", road });
        EXPECT_NE(lineWith(tool, "attached"), "");
        const auto start = std::chrono::steady_clock::now();
        tool.process->sendSignal(SIGINT);
        EXPECT_EQ(tool.finish().termination, Termination {});
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1)) << road;
    }
    devices.control(R"({"command":"clear-fault"})");
    RunningTool tool({ "watch" });
    EXPECT_NE(lineWith(tool, "  watch "), "");
    devices.control(R"({"command":"inject-fault","at":"mux","fault":"absent"})");
    EXPECT_THAT(lineWith(tool, "usbmuxd is not running"), StartsWith("tidewell: warning: "));
    devices.control(R"({"command":"clear-fault"})");
    EXPECT_THAT(lineWith(tool, "again"), HasSubstr("All devices can be seen again."));
}
