#include "Service/RunningService.h"

#include "Client/ServiceMessages.h"
#include "Devices/RequestErrors.h"
#include "Errors/CommandLineError.h"
#include "Platform/Connection.h"
#include "Platform/ServiceStart.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kStopBound = 10s;

/// In the fields of a process's `stat`, counted from the one after its name.
constexpr std::size_t kStartTimeField = 19;

constexpr const char* kMultiplexerVariable = "USBMUXD_SOCKET_ADDRESS";

std::string readFile(const std::filesystem::path& path)
{
    FileHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const auto bytes = file.isOpen() ? file.readToEnd() : Result<Data>(Data());
    return bytes ? std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size())
                 : std::string();
}

std::vector<std::string_view> wordsOf(std::string_view text)
{
    std::vector<std::string_view> words;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find_first_of(" \n"));
        if (!word.empty())
            words.push_back(word);
        text.remove_prefix(std::min(text.size(), word.size() + 1));
    }
    return words;
}

std::uint64_t numberAt(const std::vector<std::string_view>& words, std::size_t index)
{
    std::uint64_t number = 0;
    if (index < words.size())
        (void)std::from_chars(
            words[index].data(), words[index].data() + words[index].size(), number);
    return number;
}

std::chrono::milliseconds uptimeOf(const std::filesystem::path& process)
{
    // The name stands in parentheses and may hold anything, parentheses too.
    const std::string status = readFile(process / "stat");
    const auto fields
        = wordsOf(std::string_view(status).substr(std::min(status.size(), status.rfind(')') + 1)));
    const double start = static_cast<double>(numberAt(fields, kStartTimeField))
        / static_cast<double>(sysconf(_SC_CLK_TCK));
    timespec now {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const double age
        = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 - start;
    return std::chrono::milliseconds(static_cast<std::int64_t>(std::max(age, 0.0) * 1000));
}

/// The value of a variable in a process's environment; empty where it is not set there.
std::optional<std::string> variableOf(
    const std::filesystem::path& process, const std::string& variable)
{
    const std::string environment = readFile(process / "environ");
    if (environment.empty())
        return std::nullopt;
    const std::string all = std::string(1, '\0') + environment;
    const std::string name = std::string(1, '\0') + variable + "=";
    const std::size_t start = all.find(name);
    if (start == std::string::npos)
        return std::string();
    return std::string(all.c_str() + start + name.size());
}

std::optional<RunningService::Process> processBehind(const FileHandle& connection)
{
    ucred peer {};
    socklen_t size = sizeof peer;
    if (getsockopt(connection.descriptor(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return std::nullopt;
    const auto process = std::filesystem::path("/proc") / std::to_string(peer.pid);
    std::error_code error;
    const auto executable = std::filesystem::read_symlink(process / "exe", error);
    // An executable that an upgrade has replaced has a remark behind its name.
    if (!executable.filename().string().starts_with(tidewellService().executable))
        return std::nullopt;
    const std::string memory = readFile(process / "statm");
    return RunningService::Process { .identifier = peer.pid,
        .uptime = uptimeOf(process),
        .residentBytes
        = numberAt(wordsOf(memory), 1) * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)),
        .multiplexer = variableOf(process, kMultiplexerVariable) };
}

} // namespace

Result<std::optional<RunningService>> findRunningService()
{
    auto connection
        = connectToService(tidewellService(), IfNobodyListens::Fail, [] { return false; });
    if (connection) {
        auto process = processBehind(*connection);
        return std::optional(RunningService { *std::move(connection), process });
    }
    const Error& error = connection.error();
    const bool isAbsent = error.domain() == kPosixErrorDomain
        && (error.code() == ENOENT || error.code() == ECONNREFUSED);
    if (isAbsent)
        return std::optional<RunningService>();
    return serviceNotReached(error);
}

bool serviceHasOtherDevices()
{
    const auto running = findRunningService();
    if (!running || !*running || !(*running)->process || !(*running)->process->multiplexer)
        return false;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody here changes the environment
    const char* own = std::getenv(kMultiplexerVariable);
    return *(*running)->process->multiplexer != (own ? own : "");
}

Result<void> stop(const RunningService& running)
{
    // The end of its process where that is known, otherwise the end of the connection to it.
    const FileHandle process(running.process
            ? static_cast<int>(syscall(SYS_pidfd_open, running.process->identifier, 0))
            : -1);
    pollfd end { process.isOpen() ? process.descriptor() : running.connection.descriptor(), POLLIN,
        0 };
    const auto connection = tdw::Connection::toService(tidewellService());
    connection->activate({});
    ServiceProxy(connection, nullptr).terminate();

    const auto deadline = Clock::now() + kStopBound;
    auto left = std::chrono::milliseconds(kStopBound);
    while (poll(&end, 1, static_cast<int>(left.count())) <= 0) {
        left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left <= 0ms)
            return commandLineError({ .status = ExitStatus::Failure,
                .reason = "The service has not ended within "
                    + std::to_string(std::chrono::seconds(kStopBound).count()) + " s.",
                .advice = running.process
                    ? "Its process is " + std::to_string(running.process->identifier) + "."
                    : "" });
    }
    return {};
}

} // namespace tdw::cli
