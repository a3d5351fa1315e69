#include "Platform/System/Process.h"

#include "ChildRole.h"
#include "Support/Testing.h"

#include <dirent.h>

#include <cerrno>
#include <cstdio>

using namespace tdw;
using namespace std::chrono_literals;

namespace {

constexpr const char* kSelf = "/proc/self/exe";

/// The numbers of all open descriptors, without the one that reads the list.
std::string openDescriptors()
{
    std::string result;
    DIR* directory = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(directory)) {
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != ::dirfd(directory))
            result += std::string(entry->d_name) + " ";
    }
    ::closedir(directory);
    return result;
}

/// Bit 0: SIGPIPE is not at its default; bit 1: a signal is blocked.
int inheritedSignals()
{
    sigset_t mask;
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, nullptr, &mask);
    struct sigaction action { };
    ::sigaction(SIGPIPE, nullptr, &action);
    return (action.sa_handler == SIG_DFL ? 0 : 1) + (sigisemptyset(&mask) == 1 ? 0 : 2);
}

/// What this binary does when a test starts it as a child.
int runAsChild(int, char** arguments)
{
    const std::string_view job = arguments[1];
    if (job == "exit")
        return std::atoi(arguments[2]);
    if (job == "die")
        return ::raise(std::atoi(arguments[2]));
    if (job == "descriptors")
        return std::printf("%s", openDescriptors().c_str()) < 0;
    if (job == "signals")
        return inheritedSignals();
    if (job == "streams") {
        char letter = 0;
        return ::read(0, &letter, 1) != 1 || ::write(1, &letter, 1) != 1 || ::write(2, "e", 1) != 1;
    }
    ::alarm(30); // where a test fails to end it
    return ::pause();
}

const ChildRole kRoles({ "exit", "die", "descriptors", "signals", "streams", "hang" }, runAsChild);

Process start(std::vector<std::string> arguments)
{
    auto process = Process::launch({ .executable = kSelf, .arguments = std::move(arguments) });
    EXPECT_TRUE(process) << process.error().debugDescription();
    return std::move(*process);
}

std::string outputOf(LaunchOptions options)
{
    auto pipe = Pipe::create();
    options.executable = kSelf;
    options.standardOutput = pipe->writer.descriptor();
    auto process = Process::launch(options);
    EXPECT_TRUE(process) << process.error().debugDescription();
    pipe->writer.close();
    const std::string output = textOf(*pipe->reader.readToEnd());
    EXPECT_EQ(process->waitUntilExit(), Termination {});
    return output;
}

bool isGone(pid_t identifier)
{
    return ::kill(identifier, 0) < 0 && errno == ESRCH;
}

} // namespace

TEST(Process, ReportsTheExitStatusOrTheSignal)
{
    EXPECT_EQ(start({ "exit", "123" }).waitUntilExit(), (Termination { 123, false }));
    Process process = start({ "die", "15" });
    EXPECT_EQ(process.waitUntilExit(), (Termination { 15, true }));
    EXPECT_TRUE(isGone(process.identifier()));
    EXPECT_EQ(process.waitUntilExit(1ms), (Termination { 15, true })) << "asked again";
}

TEST(Process, LeaksNoDescriptorIntoTheChild)
{
    const std::string before = openDescriptors();
    FileHandle inheritable(::open("/dev/null", O_RDONLY)); // NOLINT(android-cloexec-open)
    EXPECT_EQ(outputOf({ .arguments = { "descriptors" } }), "0 1 2 ");
    inheritable.close();
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Process, ConnectsTheStreamsWhateverTheirNumbers)
{
    // The sources are the standard streams themselves, in any order and close-on-exec as every
    // descriptor of ours: the first two rows are the identity and a circle.
    constexpr std::array<std::array<int, 3>, 4> kRows { { { 0, 1, 2 }, { 1, 2, 0 }, { 2, 0, 1 },
        { 0, 2, 1 } } };
    for (const auto& row : kRows) {
        std::array<Pipe, 3> pipes { *Pipe::create(), *Pipe::create(), *Pipe::create() };
        ASSERT_EQ(::write(pipes[0].writer.descriptor(), "i", 1), 1);
        std::array<FileHandle, 3> saved;
        for (int stream = 0; stream < 3; ++stream)
            saved[std::size_t(stream)] = FileHandle(::fcntl(stream, F_DUPFD_CLOEXEC, 20));
        ::dup3(pipes[0].reader.descriptor(), row[0], O_CLOEXEC);
        ::dup3(pipes[1].writer.descriptor(), row[1], O_CLOEXEC);
        ::dup3(pipes[2].writer.descriptor(), row[2], O_CLOEXEC);
        auto process = Process::launch({ .executable = kSelf,
            .arguments = { "streams" },
            .standardInput = row[0],
            .standardOutput = row[1],
            .standardError = row[2] });
        for (int stream = 0; stream < 3; ++stream)
            ::dup2(saved[std::size_t(stream)].descriptor(), stream);
        ASSERT_TRUE(process) << process.error().debugDescription();
        EXPECT_EQ(process->waitUntilExit(10s), Termination {});
        pipes[1].writer.close();
        pipes[2].writer.close();
        EXPECT_EQ(textOf(*pipes[1].reader.readToEnd()), "i");
        EXPECT_EQ(textOf(*pipes[2].reader.readToEnd()), "e");
    }
}

TEST(Process, StartsTheChildWithDefaultSignals)
{
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    EXPECT_EQ(start({ "signals" }).waitUntilExit(), Termination {});
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    (void)std::signal(SIGPIPE, previous);
}

TEST(Process, ReportsAnExecutableThatCannotBeStarted)
{
    const struct {
        std::string executable;
        int error;
    } rows[] { { "/nonexistent/tdw_list", ENOENT }, { "/etc/passwd", EACCES },
        { std::string("/bin/true\0x", 11), EINVAL } };
    for (const auto& row : rows) {
        auto process = Process::launch({ .executable = row.executable });
        ASSERT_FALSE(process) << row.executable;
        EXPECT_EQ(process.error().code(), row.error);
        EXPECT_NE(process.error().failureReason().find(row.executable), std::string::npos);
    }
}

TEST(Process, WaitsNoLongerThanTheBound)
{
    Process process = start({ "hang" });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(process.waitUntilExit(50ms), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 50ms);
    process.sendSignal(SIGTERM);
    EXPECT_EQ(process.waitUntilExit(std::chrono::milliseconds::max()), (Termination { 15, true }));
}

TEST(Process, AssignmentAndDestructionKillAndReapAChildStillRunning)
{
    const std::string before = openDescriptors();
    pid_t second = 0;
    {
        Process process = start({ "hang" });
        const pid_t first = process.identifier();
        process = start({ "hang" });
        EXPECT_TRUE(isGone(first));
        second = process.identifier();
    }
    EXPECT_TRUE(isGone(second));
    EXPECT_EQ(openDescriptors(), before);
}
