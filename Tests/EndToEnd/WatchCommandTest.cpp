#include "EndToEnd/RunningTool.h"
#include "Support/TerminalSession.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

TEST(WatchCommand, WritesALineForEachChangeAndAsksNoUnpairedDevice)
{
    const Household devices;
    setenv("LC_ALL", "C.UTF-8", 1);
    RunningTool tool({ "watch" });
    EXPECT_THAT(tool.lineWith("  watch "), MatchesRegex("  watch .* 83 %.*"));
    devices.detach(kPhone);
    EXPECT_THAT(tool.lineWith("detached"), HasSubstr(kPhone));
    devices.attach(kPhone);
    EXPECT_THAT(tool.lineWith("Robin"), HasSubstr(" 76 %"));
    EXPECT_THAT(devices.control("log", { { "at", "lockdown" }, { "device", kStranger } }),
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
    devices.inject(R"("at":"mux","request":"ReadPairRecord","fault":"hang")");
    for (const char* road : { "--direct", "--verbose" }) {
        RunningTool tool({ "watch", road });
        EXPECT_NE(tool.lineWith("attached"), "");
        const auto start = std::chrono::steady_clock::now();
        tool.process->sendSignal(SIGINT);
        EXPECT_EQ(tool.finish().termination, Termination {});
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9)) << road;
    }
    devices.clearFaults();
    RunningTool tool({ "watch" });
    EXPECT_NE(tool.lineWith("  watch "), "");
    devices.inject(R"("at":"mux","fault":"absent")");
    EXPECT_THAT(tool.lineWith("usbmuxd is not running"), StartsWith("tidewell: warning: "));
    devices.clearFaults();
    EXPECT_THAT(tool.lineWith("again"), HasSubstr("All devices can be seen again."));
}
