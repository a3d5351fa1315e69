#include "EndToEnd/Household.h"
#include "EndToEnd/ToolRun.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TerminalSession.h"
#include "Support/Testing.h"

#include <sys/stat.h>

#include <iterator>

using namespace tdw;
using namespace matchers;

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

/// The width in a PNG's header.
unsigned widthOf(const std::string& png)
{
    const auto byte = [&](std::size_t at) {
        return static_cast<unsigned char>(png.at(at));
    };
    return byte(18) * 256U + byte(19);
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

    expectFailure(
        { "companions", "--battery" }, 2, AllOf(HasSubstr("More than one"), HasSubstr(kStranger)));
    expectFailure({ "companions", kLockedTablet }, 3, HasSubstr("The device is locked."));
    household.control("detach", { { "connection", "usb" }, { "device", kPhone } });
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
    // A watch can be named by its beginning where that is its own, and by its name.
    EXPECT_EQ(tidewell({ "companions", "f1d0", "watch", "--battery" }).termination.status, 2);
    EXPECT_THAT(tidewell({ "companions", "f1d0", "a", "--battery" }).output, HasSubstr("watch-1"));
    const auto none = tidewell({ "companions", "f1d0", "watch-2", "--json" });
    EXPECT_EQ(none.termination.status, 1);
    EXPECT_THAT(none.output, StartsWith(R"({"error":)"));
}

TEST(CompanionsCommand, ALookUpThatFailedIsSaidToHaveFailed)
{
    const Household household;
    household.inject(R"("at":"com.apple.companion_proxy","fault":"garbage")");
    expectFailure({ "companions", kPhone }, 1, HasSubstr("for its watches"));
    const auto info = tidewell({ "info", kPhone });
    EXPECT_EQ(info.termination.status, 0);
    EXPECT_THAT(info.output, HasSubstr(" 76 %"));
    EXPECT_THAT(info.standardError, StartsWith("tidewell: warning: "));

    // A tablet has no such service, which is no warning.
    household.control(
        "set-value", { { "key", "DeviceClass" }, { "value", "iPad" }, { "device", kPhone } });
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
    const std::string file = directory.path() / "lock.png";
    const auto run = tidewell({ "wallpaper", kPhone, "-o", file, "--width", "200", "--json" });
    EXPECT_THAT(run.output,
        AllOf(StartsWith(R"({"Orientation":1,"Width":200,"Height":433,"Bytes":)"),
            HasSubstr(R"(,"File":")" + file)));
    const auto lock = contentsOf(file);
    EXPECT_EQ(widthOf(lock), 200U);

    expectFailure({ "wallpaper", kPhone, "--home", "-o", file }, 1,
        HasSubstr("Give --force to overwrite it."));
    EXPECT_EQ(contentsOf(file), lock);

    // What a link leads to is replaced, and the link stays one.
    std::filesystem::create_symlink("lock.png", directory.path() / "link");
    const std::string link = directory.path() / "link";
    chmod(file.c_str(), 0600);
    EXPECT_EQ(
        tidewell({ "wallpaper", kPhone, "--home", "--force", "-o", link }).termination.status, 0);
    struct stat status { };
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U) << "a file keeps its permissions";
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(widthOf(contentsOf(file)), 393U);

    EXPECT_EQ(tidewell({ "wallpaper", kPhone, "--lock", "--width=200", "-o", "-" }).output, lock);
    EXPECT_NE(tidewell({ "wallpaper", kPhone, "--home", "--width=200", "-o", "-" }).output, lock);

    const std::string other = directory.path() / "other.png";
    tidewell({ "wallpaper", kPhone, "--lock", "--width=200", "-o", other });
    EXPECT_EQ(widthOf(contentsOf(other)), 200U);
    EXPECT_EQ(contentsOf(other), lock);
    EXPECT_THAT(directory.names(), UnorderedElementsAre("lock.png", "link", "other.png"));
}

TEST(WallpaperCommand, LeavesNothingBehindWhereItFails)
{
    const Household household;
    const TemporaryDirectory directory;
    const std::string file = directory.path() / "new.png";
    const auto fails = [&](std::vector<std::string> arguments, const std::string& words,
                           const std::string& program = kBuild / "bin/tidewell") {
        const auto run = tidewell(std::move(arguments), program);
        EXPECT_NE(run.termination, Termination {}) << words;
        EXPECT_THAT(run.standardError, HasSubstr(words));
        EXPECT_THAT(directory.names(), IsEmpty()) << words;
    };
    fails({ "wallpaper", kPhone, "-o", directory.path() / "none/new.png" }, "No such file");
    fails({ "wallpaper", kPhone, "-o", directory.path(), "--force" }, "no ordinary file");
    fails({ "wallpaper", kPhone, "-o", "/dev/null", "--force" }, "no ordinary file");
    fails({ "wallpaper", kPhone }, "give a file with -o FILE");
    fails({ "wallpaper", kPhone, "-o", file, "--home", "--lock" }, "one of --home and --lock");
    // As on a full disk: a part of the picture can be written, and no more.
    fails({ "--fsize=1000", kBuild / "bin/tidewell", "wallpaper", kPhone, "-o", file },
        "new.png\": File too large", "/usr/bin/prlimit");
    for (const std::string data :
        { R"({"$hex": "6e6f"})", R"({"$hex": "89504e470d0a1a0a00000000"})" }) {
        household.inject(R"("at":"com.apple.springboardservices","fault":"wrong-type",)"
                         R"("replyKey":"pngData","value":)"
            + data);
        fails({ "wallpaper", kPhone, "-o", file }, "PNG image");
        household.clearFaults();
    }
}

TEST(WallpaperCommand, ShowsThePictureOnTerminalsThatCan)
{
    const Household household;
    const std::tuple<const char*, std::string, std::string> rows[] = {
        { "kitty", "\x1b_Gi=31;OK\x1b\\\x1b[?62c", "\x1b_Ga=T,f=100,q=2," },
        { "sixel", "\x1b[?62;4;22c", "\x1bP0;1;0q\"1;1;" },
        { "neither", "\x1b[?1;2c", "" },
        { "an answer that is none", "y\n\x1b[", "" },
    };
    for (const auto& [situation, answer, picture] : rows) {
        SCOPED_TRACE(situation);
        TerminalSession terminal({ "wallpaper", kPhone }, 24, 80);
        terminal.readUntil("\x1b[c");
        terminal.type(answer);
        const auto output = terminal.readUntil(picture.empty() ? "\n" : picture);
        EXPECT_EQ(output.empty(), picture.empty());
        while (!terminal.readUntil("\n").empty()) { }
        EXPECT_EQ(terminal.finish().status, picture.empty() ? 64 : 0);
        EXPECT_TRUE(terminal.isAsBefore());
    }
    // The user's key for interrupting comes as a byte while the terminal is asked.
    TerminalSession interrupted({ "wallpaper", kPhone }, 24, 80);
    interrupted.readUntil("\x1b[c");
    interrupted.type("\x03");
    EXPECT_EQ(interrupted.finish(), (Termination { SIGINT, true }));
    EXPECT_TRUE(interrupted.isAsBefore());
}
