#include "Server/TDWServerImplementation.h"

#include "CapturedStream.h"
#include "Server/PropertyListNode.h"
#include "Server/TDWServerLockdown.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"

#include <sys/prctl.h>
#include <sys/resource.h>

#include <cerrno>
#include <system_error>

TEST(TDWServerImplementation, ReadsTheConnectionTypeAsALooseNumber)
{
    const std::pair<const char*, int> cases[]
        = { { "1", 2 }, { "2", 4 }, { " +2", 4 }, { "2nd", 4 }, { "0", 6 }, { "3", 6 }, { "-1", 6 },
              { "", 6 }, { "usb", 6 }, { "4294967297", 6 }, { "1.9", 2 } };
    for (const auto& [text, options] : cases) {
        const char* arguments[] = { "tdw_info", "udid", text };
        EXPECT_EQ(TDWParseDeviceOptionsFromArguments(3, const_cast<char**>(arguments)), options)
            << text;
        EXPECT_EQ(TDWParseDeviceOptionsFromArguments(2, const_cast<char**>(arguments)), 6);
    }
}

TEST(TDWServerLockdown, LeavesNothingOldBehindAFailedConversion)
{
    const CapturedStream diagnostics(STDERR_FILENO);
    tdw::PropertyListNode nested(plist_new_array());
    for (int depth = 0; depth < 600; ++depth) {
        const plist_t outer = plist_new_array();
        plist_array_append_item(outer, nested.release());
        nested.reset(outer);
    }
    std::optional<tdw::Value> object = tdw::Value("of the request before");
    EXPECT_GT(TDWServerGetFoundationObjectFromRawPlist(nested.get(), object), 0);
    EXPECT_EQ(object, std::nullopt);

    // The detail belongs to the error that is answered with, and to no other on the way to it.
    tdw::setErrorDetail("BatteryCurrentCapacity");
    const auto unread = tdw::readNode(nullptr);
    ASSERT_FALSE(unread);
    EXPECT_EQ(unread.error().code(), -1);
    EXPECT_EQ(
        *unread.error().userInfo().find(kTDWErrorDetailKey), tdw::Value("BatteryCurrentCapacity"));
}

namespace {

/// What a server process does, up to its end, and what it leaves on standard error. Its standard
/// output goes there as well.
struct ServerProcess {
    const char* situation;
    std::function<void()> work;
    std::function<bool(int)> ending;
    const char* output;
};

const std::string kTooMany = "^<.xml.*Too many open files.*</plist>\n$";

const ServerProcess kProcesses[] = {
    { "stopped in time",
        [] {
            TDWServerStopTimeoutClock(); // before any start
            TDWServerSetTimeoutInterval(0.5);
            TDWServerInitialize();
            TDWServerStopTimeoutClock();
            TDWServerStopTimeoutClock();
            alarm(1);
            pause();
        },
        testing::KilledBySignal(SIGALRM), "^$" },
    { "a negative interval",
        [] {
            TDWServerSetTimeoutInterval(-1.0);
            TDWServerInitialize();
            TDWServerStopTimeoutClock();
            alarm(1);
            pause();
        },
        testing::KilledBySignal(SIGALRM), "^$" },
    { "a second start, and one stop",
        [] {
            TDWServerSetTimeoutInterval(0.3);
            TDWServerInitialize();
            _TDWServerStartTimeoutClock();
            TDWServerStopTimeoutClock();
            alarm(1);
            pause();
        },
        testing::KilledBySignal(SIGALRM),
        "^.ERROR. .Source/Server/TDWServerImplementation.cpp:[0-9]+. Invoked timeout clock start "
        "function more than once in the lifetime of the process!\n$" },
    { "an exception on another thread",
        [] {
            TDWServerInitialize();
            std::thread([] { throw std::system_error(EMFILE, std::generic_category()); }).join();
        },
        testing::ExitedWithCode(1), kTooMany.c_str() },
    { "a core is not written",
        [] {
            TDWServerInitialize();
            rlimit limit { 1, 1 };
            getrlimit(RLIMIT_CORE, &limit);
            _exit(limit.rlim_cur == 0 && prctl(PR_GET_DUMPABLE) == 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^$" },
};

} // namespace

TEST(ServerProcessDeathTest, EndsAsItIsTo)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const ServerProcess& process : kProcesses) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EXIT(
            {
                dup2(STDERR_FILENO, STDOUT_FILENO);
                process.work();
            },
            process.ending, process.output)
            << process.situation;
        EXPECT_LE(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    }
}
