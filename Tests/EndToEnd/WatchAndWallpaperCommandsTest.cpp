#include "EndToEnd/Household.h"
#include "EndToEnd/ToolRun.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>

using namespace tdw;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace {

/// A phone on the cable, with two watches unless it is told otherwise.
std::string phone(const std::string& members)
{
    const std::string values = R"("values": {"DeviceName": "A", "DeviceClass": "Watch",
        "HardwareModel": "N", "ProductType": "Watch7,5", "DeviceColor": "1", "WiFiAddress": "a",
        "BluetoothAddress": "b", "SerialNumber": "S", "ProductName": "Watch OS",
        "ProductVersion": "11", "BuildVersion": "22T", "BatteryCurrentCapacity": 5})";
    return R"({"devices": [{"udid": "f1d0000000000000000000000000000000000001",)" + members
        + R"("watches": [{"udid": "watch-1", )" + values + R"(}, {"udid": "watch-2", )" + values
        + R"(, "errors": {"SerialNumber": "UnsupportedWatchKey"}}]}]})";
}

/// A directory of its own, gone with the object.
struct TemporaryDirectory {
    TemporaryDirectory()
    {
        std::string name = std::filesystem::temp_directory_path() / "tidewell-test-XXXXXX";
        path = mkdtemp(name.data());
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() { std::filesystem::remove_all(path); }

    std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path))
            names.push_back(entry.path().filename());
        return names;
    }

    std::filesystem::path path;
};

std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return { std::istreambuf_iterator<char>(stream), {} };
}

/// The width in a PNG's header.
unsigned widthOf(const std::string& png)
{
    const auto byte = [&](std::size_t at) {
        return static_cast<unsigned char>(png.at(at));
    };
    return byte(18) * 256U + byte(19);
}

/// What a terminal was sent by a command that ran on it, and how it was left behind.
struct TerminalRun {
    std::string output;
    bool isModeKept = false;
    int unreadInput = 0;
    Termination termination;
};

/// Runs a command as the session of a terminal that answers the question for its attributes.
TerminalRun runOnTerminal(const std::vector<std::string>& arguments, const std::string& answer)
{
    const FileHandle terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    grantpt(terminal.descriptor());
    unlockpt(terminal.descriptor());
    const FileHandle side(open(ptsname(terminal.descriptor()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios before {};
    tcgetattr(side.descriptor(), &before);

    LaunchOptions options;
    options.executable = "/usr/bin/setsid";
    options.arguments = { "--ctty", "--wait", kBuild / "bin/tidewell" };
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.environment = { { "TERM", "xterm" } };
    options.standardInput = side.descriptor();
    options.standardOutput = side.descriptor();
    const auto log = Pipe::create();
    options.standardError = log->writer.descriptor();
    auto process = Process::launch(options);
    EXPECT_TRUE(process);

    TerminalRun run;
    bool isAnswered = false;
    bool hasEnded = false;
    while (!hasEnded) {
        pollfd entries[]
            = { { terminal.descriptor(), POLLIN, 0 }, { process->descriptor(), POLLIN, 0 } };
        poll(entries, 2, 30'000);
        hasEnded = entries[1].revents != 0 && entries[0].revents == 0;
        char bytes[4096];
        const ssize_t count
            = entries[0].revents != 0 ? read(terminal.descriptor(), bytes, sizeof bytes) : 0;
        run.output.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (!isAnswered && run.output.find("\x1b[c") != std::string::npos) {
            isAnswered = true;
            EXPECT_TRUE(writeToDescriptor(terminal.descriptor(), std::as_bytes(std::span(answer))));
        }
        if (entries[0].revents == 0 && entries[1].revents == 0) {
            ADD_FAILURE() << "nothing happens";
            break;
        }
    }
    run.termination = process->waitUntilExit();
    termios after {};
    tcgetattr(side.descriptor(), &after);
    run.isModeKept = before.c_lflag == after.c_lflag && before.c_iflag == after.c_iflag;
    // Only lines count as input unless the terminal is told to hand bytes out.
    after.c_lflag &= ~static_cast<tcflag_t>(ICANON);
    tcsetattr(side.descriptor(), TCSANOW, &after);
    ioctl(side.descriptor(), FIONREAD, &run.unreadInput);
    return run;
}

} // namespace

TEST(CompanionsCommand, ShowsTheWatchesOfAPhone)
{
    const Household household;
    EXPECT_THAT(tidewell({ "companions", "robin's iphone" }).output,
        AllOf(StartsWith("NAME                 MODEL     SOFTWARE       BATTERY"),
            HasSubstr("\nRobin’s Apple Watch  Watch7,5  Watch OS 11.5  "),
            HasSubstr(" 83 %  " + kWatch + "\n")));
    EXPECT_EQ(tidewell({ "companions", kPhone, kWatch, "--battery", "--json" }).output,
        R"({"Devices":[{"UDID":")" + kWatch
            + R"(","Battery":{"BatteryCurrentCapacity":83,"BatteryIsCharging":false}}]})"
              "\n");
    EXPECT_THAT(tidewell({ "info", kPhone }).output,
        AllOf(StartsWith("Name               Robin"), HasSubstr("\n\nNAME "), HasSubstr(kWatch)));
    EXPECT_THAT(tidewell({ "info", kPhone, "--json" }).output,
        HasSubstr(R"("Companions":[{"DeviceName":"Robin\u2019s Apple Watch")"));

    const auto which = tidewell({ "companions", "--battery" });
    EXPECT_EQ(which.termination.status, 2);
    EXPECT_THAT(which.standardError, AllOf(HasSubstr("More than one"), HasSubstr(kStranger)));
    const auto locked = tidewell({ "companions", kLockedTablet });
    EXPECT_EQ(locked.termination.status, 3);
    EXPECT_THAT(locked.standardError, HasSubstr("The device is locked."));
    household.control(R"({"command":"detach","connection":"usb","device":")" + kPhone + R"("})");
    EXPECT_EQ(tidewell({ "companions", kPhone, "--connection=usb" }).termination.status, 2);
}

TEST(CompanionsCommand, AWatchThatCannotBeReadCostsItselfAlone)
{
    const Household devices(phone(""));
    for (const std::string command : { "companions", "info" }) {
        const auto run = tidewell({ command, "f1d0" });
        EXPECT_EQ(run.termination.status, 0) << command;
        EXPECT_THAT(run.output, AllOf(HasSubstr("watch-1"), Not(HasSubstr("watch-2"))));
        EXPECT_THAT(run.standardError,
            AllOf(HasSubstr("tidewell: warning: Cannot read the watch \"watch-2\": "),
                HasSubstr("Detail: SerialNumber")));
        EXPECT_THAT(tidewell({ command, "f1d0", "--json" }).output,
            AllOf(HasSubstr(R"("UDID":"watch-1")"), HasSubstr(R"("warnings":[)")));
    }
    EXPECT_THAT(tidewell({ "companions", "--battery" }).output,
        AllOf(HasSubstr("watch-1"), HasSubstr("watch-2")))
        << "batteries need no serial number, and there is one device only";
    const auto none = tidewell({ "companions", "f1d0", "watch-2", "--json" });
    EXPECT_EQ(none.termination.status, 1);
    EXPECT_THAT(none.output, StartsWith(R"({"error":)"));
}

TEST(CompanionsCommand, ALookUpThatFailedIsSaidToHaveFailed)
{
    const Household household;
    household.control(
        R"({"command":"inject-fault","at":"com.apple.companion_proxy","fault":"garbage"})");
    const auto failed = tidewell({ "companions", kPhone });
    EXPECT_EQ(failed.termination.status, 1);
    EXPECT_THAT(failed.standardError, HasSubstr("for its watches"));
    const auto info = tidewell({ "info", kPhone });
    EXPECT_EQ(info.termination.status, 0);
    EXPECT_THAT(info.output, HasSubstr(" 76 %"));
    EXPECT_THAT(info.standardError, HasSubstr("_TDWFetchCompanionDeviceIdentifiers"));

    // A tablet has no such service, which is no news.
    household.control(R"({"command":"set-value","key":"DeviceClass","value":"iPad","device":")"
        + kPhone + R"("})");
    EXPECT_EQ(tidewell({ "info", kPhone }).standardError, "");
}

TEST(CompanionsCommand, APhoneWithoutAWatchIsNoFailure)
{
    const Household lonely(
        R"({"devices": [{"udid": "f1d0000000000000000000000000000000000001"}]})");
    const auto none = tidewell({ "companions" });
    EXPECT_EQ(none.termination.status, 0);
    EXPECT_THAT(none.standardError, StartsWith("No watch is paired with"));
    EXPECT_EQ(tidewell({ "companions", "--json" }).output, "{\"Devices\":[]}\n");
}

TEST(WallpaperCommand, WritesThePictureAndOverwritesNothingUnasked)
{
    const Household household;
    const TemporaryDirectory directory;
    const std::string file = directory.path / "lock.png";
    const auto run = tidewell({ "wallpaper", kPhone, "-o", file, "--width", "200", "--json" });
    EXPECT_THAT(run.output,
        AllOf(StartsWith(R"({"Orientation":1,"Width":200,"Height":433,"Bytes":)"),
            HasSubstr(R"(,"File":")" + file)));
    const auto lock = contentOf(file);
    EXPECT_EQ(widthOf(lock), 200U);

    const auto refused = tidewell({ "wallpaper", kPhone, "--home", "-o", file });
    EXPECT_EQ(refused.termination.status, 1);
    EXPECT_THAT(refused.standardError, HasSubstr("Give --force to overwrite it."));
    EXPECT_EQ(contentOf(file), lock);

    // What a link leads to is replaced, and the link stays one.
    std::filesystem::create_symlink("lock.png", directory.path / "link");
    const std::string link = directory.path / "link";
    EXPECT_EQ(
        tidewell({ "wallpaper", kPhone, "--home", "--force", "-o", link }).termination.status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(widthOf(contentOf(file)), 393U);

    household.control(
        R"({"command":"set-value","key":"DeviceName","value":"x","device":")" + kPhone + R"("})");
    const std::string other = directory.path / "other.png";
    tidewell({ "wallpaper", kPhone, "--lock", "--width=200", "-o", other });
    EXPECT_EQ(widthOf(contentOf(other)), 200U);
    EXPECT_NE(contentOf(other), lock) << "the name stands on it";
    EXPECT_THAT(directory.names(), UnorderedElementsAre("lock.png", "link", "other.png"));
}

TEST(WallpaperCommand, LeavesNothingBehindWhereItFails)
{
    const Household household;
    const TemporaryDirectory directory;
    const std::string file = directory.path / "new.png";
    const auto fails = [&](std::vector<std::string> arguments, const std::string& words,
                           const std::string& program = kBuild / "bin/tidewell") {
        const auto run = tidewell(std::move(arguments), program);
        EXPECT_NE(run.termination, Termination {}) << words;
        EXPECT_THAT(run.standardError, HasSubstr(words));
        EXPECT_THAT(directory.names(), IsEmpty()) << words;
    };
    fails({ "wallpaper", kPhone, "-o", directory.path / "none/new.png" }, "No such file");
    fails({ "wallpaper", kPhone, "-o", directory.path, "--force" }, "no ordinary file");
    fails({ "wallpaper", kPhone, "-o", "/dev/null", "--force" }, "no ordinary file");
    fails({ "wallpaper", kPhone }, "say with -o FILE where");
    fails({ "wallpaper", kPhone, "-o", file, "--home", "--lock" }, "one of --home and --lock");
    // As on a full disk: a part of the picture can be written, and no more.
    fails({ "--fsize=1000", kBuild / "bin/tidewell", "wallpaper", kPhone, "-o", file },
        "new.png\": File too large", "/usr/bin/prlimit");
    for (const std::string data :
        { R"({"$hex": "6e6f"})", R"({"$hex": "89504e470d0a1a0a00000000"})" }) {
        household.control(R"({"command":"inject-fault","at":"com.apple.springboardservices",)"
                          R"("fault":"wrong-type","replyKey":"pngData","value":)"
            + data + "}");
        fails({ "wallpaper", kPhone, "-o", file }, "PNG image");
        household.control(R"({"command":"clear-fault"})");
    }
}

TEST(WallpaperCommand, ShowsThePictureOnTerminalsThatCan)
{
    const Household household;
    const struct {
        const char* situation;
        std::string answer;
        std::string picture;
    } rows[] = {
        { "kitty", "\x1b_Gi=31;OK\x1b\\\x1b[?62c", "\x1b_Ga=T,f=100,q=2," },
        { "sixel", "\x1b[?62;4;22c", "\x1bP0;1;0q\"1;1;" },
        { "neither", "\x1b[?1;2c", "" },
        { "an answer that is none", "y\n\x1b[", "" },
    };
    for (const auto& row : rows) {
        const auto run = runOnTerminal({ "wallpaper", kPhone }, row.answer);
        EXPECT_THAT(run.output, HasSubstr("\x1b[c")) << row.situation;
        if (!row.picture.empty())
            EXPECT_THAT(run.output, HasSubstr(row.picture)) << row.situation;
        else
            EXPECT_LT(run.output.size(), 100U) << row.situation;
        EXPECT_TRUE(run.isModeKept) << row.situation;
        EXPECT_EQ(run.unreadInput, 0) << row.situation;
    }
    // The user's key for interrupting comes as a byte while the terminal is asked.
    const auto interrupted = runOnTerminal({ "wallpaper", kPhone }, "\x03");
    EXPECT_EQ(interrupted.termination, (Termination { SIGINT, true }));
    EXPECT_TRUE(interrupted.isModeKept);
}
