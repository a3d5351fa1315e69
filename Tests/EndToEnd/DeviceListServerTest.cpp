#include "EndToEnd/SimulatedDevices.h"
#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWServer.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"
#include "Support/Testing.h"

#include <spawn.h>
#include <sys/resource.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <cerrno>
#include <set>

using namespace tdw;
using namespace std::chrono_literals;
using namespace matchers;

namespace {

const std::string kServers = TIDEWELL_BUILD_DIR "/libexec/tidewell";

constexpr const char* kTwoDevices = R"({ "devices": [
    { "udid": "00008130-00FACADE0001001C", "connections": ["usb", "network"] },
    { "udid": "f1d0000000000000000000000000000000000001", "connections": ["network"] } ] })";

Value item(const char* udid, int connection)
{
    return Dictionary { { kTDWDeviceListItemUDID, udid },
        { kTDWDeviceListItemConnection, connection } };
}

Error unreachable()
{
    return TDWErrorCreate("idevice_get_device_list_extended", -3);
}

/// What becomes of the server tool's standard output when it is started with exactly these strings.
class ToolStart {
public:
    ToolStart() { posix_spawn_file_actions_init(&actions); }
    ToolStart(const ToolStart&) = delete;
    ToolStart& operator=(const ToolStart&) = delete;
    ~ToolStart() { posix_spawn_file_actions_destroy(&actions); }

    int statusOf(const char* name) const
    {
        const std::array<const char*, 2> arguments { name, nullptr };
        pid_t child = 0;
        int status = -1;
        EXPECT_EQ(posix_spawn(&child, (kServers + "/tdwserver").c_str(), &actions, nullptr,
                      const_cast<char* const*>(arguments.data()), environ),
            0);
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    posix_spawn_file_actions_t actions {};
};

} // namespace

TEST(DeviceListServer, ListsEachConnectionOfEachDevice)
{
    const SimulatedDevices devices(kTwoDevices);
    const auto answer = devices.run("tdw_list", { "ignored", "arguments" });
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.standardError, "");
    EXPECT_EQ(answer.payload,
        Value(Dictionary { { kTDWDevicesKey,
            Array { item("00008130-00FACADE0001001C", 1), item("00008130-00FACADE0001001C", 2),
                item("f1d0000000000000000000000000000000000001", 2) } } }));
    EXPECT_EQ(answer.deviceID, std::nullopt);

    // The judge of the simulator: software written elsewhere.
    EXPECT_EQ(runToEnd("/usr/bin/idevice_id", { "-l" }).output, "00008130-00FACADE0001001C\n");

    devices.detach("00008130-00FACADE0001001C");
    devices.detach("f1d0000000000000000000000000000000000001");
    EXPECT_EQ(devices.run("tdw_list").payload, Value(Dictionary { { kTDWDevicesKey, Array {} } }));
}

TEST(DeviceListServer, AnswersWithAnErrorWhateverTheMultiplexerDoes)
{
    const SimulatedDevices devices(kTwoDevices);
    for (const std::string fault : { "drop", R"(drop","request":"Accept)", "truncate",
             "no-serial-number", "absent", "hang", "garbage" }) {
        devices.inject(R"("at":"mux","fault":")" + fault + '"');
        const auto answer = devices.run("tdw_list");
        const bool isSilent = fault == "hang" || fault == "garbage";
        EXPECT_TRUE(!isSilent || (answer.duration >= 9s && answer.duration <= 30s)) << "its clock";
        // The library may give up as the clock runs out; whichever comes first is the only answer.
        EXPECT_EQ(answer.error, answer.status == 1 ? serverTimeoutError() : unreachable())
            << fault << answer.output;
        devices.clearFaults();
    }
    EXPECT_EQ(devices.run("tdw_list").status, 0) << "and recovers when the multiplexer does";
}

TEST(DeviceListServer, WaitsForAMultiplexerWhoseQueueIsFull)
{
    SimulatedDevices devices(kTwoDevices);
    // The queue may be longer than the number of descriptors that users have without asking.
    rlimit usual {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit most { .rlim_cur = usual.rlim_max, .rlim_max = usual.rlim_max };
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &most), 0);
    devices.signal(SIGSTOP);
    std::vector<FileHandle> queue;
    sockaddr_un address { AF_UNIX, {} };
    (devices.directory() / "usbmuxd").string().copy(address.sun_path, sizeof address.sun_path - 1);
    int code = 0;
    while (code == 0) {
        queue.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        code = connect(
            queue.back().descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ASSERT_EQ(errno, EAGAIN);

    LaunchOptions options;
    options.executable = kServers + "/tdw_list";
    Pipe output = *Pipe::create();
    options.standardOutput = output.writer.descriptor();
    auto server = Process::launch(options);
    ASSERT_TRUE(server);
    EXPECT_EQ(server->waitUntilExit(300ms), std::nullopt) << "it took the queue for an absence";
    queue.clear();
    devices.signal(SIGCONT);
    EXPECT_EQ(server->waitUntilExit(), (Termination { 0, false }));
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
}

TEST(ServerTool, HasEachServerOfTheTableAndNoOther)
{
    std::set<std::string> names;
    for (const TDWServerDescription& server : TDWServers()) {
        if (server.kind != TDWServerKind::Reserved)
            names.emplace(server.name);
    }
    std::set<std::string> links;
    for (const auto& file : std::filesystem::directory_iterator(kServers)) {
        if (file.is_symlink())
            links.insert(file.path().filename());
    }
    EXPECT_EQ(links, names);

    // Without a reader of its standard output the events server ends at once, too.
    Pipe unread = *Pipe::create();
    unread.reader.close();
    ToolStart tool;
    posix_spawn_file_actions_adddup2(&tool.actions, unread.writer.descriptor(), STDOUT_FILENO);
    for (const std::string& name : names)
        EXPECT_THAT(tool.statusOf(name.c_str()), AnyOf(0, 1, 253)) << name;
}

TEST(ServerTool, RefusesNamesThatAreNoServers)
{
    ToolStart tool;
    posix_spawn_file_actions_addopen(&tool.actions, STDOUT_FILENO, "/dev/full", O_WRONLY, 0);
    for (const char* name : { "tdwserver", "tdw_test", "tdw_LIST" })
        EXPECT_EQ(tool.statusOf(name), 123) << name;
    EXPECT_EQ(tool.statusOf(nullptr), 111);
    EXPECT_EQ(tool.statusOf("/bin/"), 111);
    EXPECT_EQ(SimulatedDevices::run("tdwserver").output, "");
}

TEST(ServerTool, AnswersWithWhatLittleItHas)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs more than the test leaves";
#endif
    const SimulatedDevices devices(kTwoDevices);
    std::vector<std::string> limits { "--nofile=4" };
    for (int mebibytes = 16; mebibytes <= 64; mebibytes += 4)
        limits.push_back("--as=" + std::to_string(mebibytes << 20));
    for (const std::string& limit : limits) {
        const auto answer = devices.run(
            "/usr/bin/prlimit", { limit, kServers + "/tdw_info", "00008130-00FACADE0001001C" });
        EXPECT_THAT(answer.standardError, Not(HasSubstr("terminate called"))) << limit;
        constexpr int kNotLoaded = 127;
        EXPECT_TRUE(answer.payload || answer.error || answer.status == kNotLoaded)
            << limit << ": " << answer.status << answer.output << answer.standardError;
    }
}

TEST(ServerTool, KeepsTheEnvelopeOutOfTheDevicesConnection)
{
    // With standard output closed, the connection to the multiplexer would become descriptor 1.
    const SimulatedDevices devices(kTwoDevices);
    ToolStart tool;
    posix_spawn_file_actions_addclose(&tool.actions, STDOUT_FILENO);
    EXPECT_EQ(tool.statusOf("tdw_list"), 1) << "the answer was not delivered";
}
