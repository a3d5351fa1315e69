#include "Requests/RunningService.h"

#include "Client/ServiceMessages.h"
#include "Errors/CommandLineError.h"
#include "Platform/Messages/Message.h"
#include "Platform/Messages/MessageFrame.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/Trace.h"
#include "Requests/RequestErrors.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace tdw::cli {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// A service on a loaded machine answers this in milliseconds.
constexpr auto kStatusBound = 3s;
constexpr auto kStopBound = 10s;
constexpr auto kKillBound = 2s;

constexpr std::string_view kUsualMultiplexer = "UNIX:/var/run/usbmuxd";

/// Waits until a descriptor can be read; false at the deadline.
bool waitUntilReadable(int descriptor, Clock::time_point deadline)
{
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd entry { descriptor, POLLIN, 0 };
        const int count = poll(&entry, 1, left > 0ms ? static_cast<int>(left.count()) : 0);
        if (count > 0 || (count == 0 && left <= 0ms))
            return count > 0;
    }
}

Result<void> sendMessage(const FileHandle& socket, const Message& message)
{
    const Data frame = TDW_TRY(encodeMessage(message));
    // The socket's buffer holds far more than such a frame.
    const ssize_t count
        = send(socket.descriptor(), frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count != static_cast<ssize_t>(frame.size()))
        return Error::posix(count < 0 ? errno : EAGAIN, "Cannot write to the service");
    return {};
}

/// Asks over a connection that is used for nothing else, without the threads of one for requests.
/// Errors: ETIMEDOUT, where no answer comes
Result<Reply> askService(const FileHandle& socket, const Message& message)
{
    TDW_TRY(sendMessage(socket, message));
    const auto deadline = Clock::now() + kStatusBound;
    FrameDecoder decoder;
    while (waitUntilReadable(socket.descriptor(), deadline)) {
        std::array<std::byte, 4096> chunk {};
        const ssize_t count = recv(socket.descriptor(), chunk.data(), chunk.size(), MSG_DONTWAIT);
        if (count <= 0)
            return Error::posix(count == 0 ? ECONNRESET : errno, "Cannot read from the service");
        decoder.append(std::span(chunk).first(static_cast<std::size_t>(count)));
        while (const auto payload = TDW_TRY(decoder.next())) {
            const auto content = TDW_TRY(decodeMessage(*payload));
            // Whatever else the service tells all its clients does not matter here.
            if (const Reply* reply = std::get_if<Reply>(&content))
                return *reply;
        }
    }
    return Error::posix(ETIMEDOUT, "Waiting for the service");
}

std::optional<RunningService::Status> statusIn(const Reply& reply)
{
    const Array* values = std::get_if<Array>(&reply.content);
    if (!values || values->size() != 1)
        return std::nullopt;
    const Value& fields = values->front();
    const auto text = [&](std::string_view key) {
        const std::string* value = fields.stringAt(key);
        return value ? *value : std::string();
    };
    return RunningService::Status { .process = static_cast<pid_t>(fields.intAt("pid").value_or(0)),
        .uptimeSeconds = fields.intAt("uptime").value_or(0),
        .residentBytes = fields.intAt("memory").value_or(0),
        .requests = fields.intAt("requests").value_or(0),
        .subscribers = fields.intAt("subscribers").value_or(0),
        .multiplexer = text("multiplexer"),
        .version = text("version") };
}

/// A connection to the service that runs; none where none does.
Result<std::optional<FileHandle>> connectToRunningService()
{
    auto connection = connectToService(tidewellService(), StartPolicy::Fail, [] { return false; });
    if (connection)
        return std::optional(*std::move(connection));
    const Error& error = connection.error();
    if (error.domain() == kPosixErrorDomain
        && (error.code() == ENOENT || error.code() == ECONNREFUSED))
        return std::optional<FileHandle>();
    return serviceNotReached(error);
}

Error serviceSilent(const Error& cause)
{
    return commandLineError({ .status = ExitStatus::ServiceUnavailable,
        .reason = "The service of Tidewell runs, but does not answer.",
        .advice
        = "\"tidewell service stop\" ends it, and the next request starts another one. With "
          "--direct the request works without it.",
        .cause = cause });
}

/// The process that made the socket, where that is the service itself and not one that keeps the
/// socket for it, such as systemd.
pid_t processBehind(const FileHandle& connection)
{
    ucred peer {};
    socklen_t size = sizeof peer;
    if (getsockopt(connection.descriptor(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return 0;
    std::error_code error;
    const auto executable = std::filesystem::read_symlink(
        std::filesystem::path("/proc") / std::to_string(peer.pid) / "exe", error);
    // An executable that an upgrade has replaced has a remark behind its name.
    return executable.filename().string().starts_with(tidewellService().executable) ? peer.pid : 0;
}

FileHandle openProcess(pid_t process)
{
    return FileHandle(process > 0 ? static_cast<int>(syscall(SYS_pidfd_open, process, 0)) : -1);
}

/// Kills a service that does not answer.
Result<bool> killService(const FileHandle& connection, const Error& cause)
{
    const FileHandle process = openProcess(processBehind(connection));
    if (process.isOpen()
        && syscall(SYS_pidfd_send_signal, process.descriptor(), SIGKILL, nullptr, 0) == 0
        && waitUntilReadable(process.descriptor(), Clock::now() + kKillBound))
        return true;
    return serviceSilent(cause);
}

} // namespace

Result<std::optional<RunningService>> findRunningService()
{
    const TraceStep step("search for the running service");
    auto connection = TDW_TRY(connectToRunningService());
    if (!connection)
        return std::optional<RunningService>();
    const auto reply = askService(*connection, { "statusWithReply:", 1, {} });
    if (!reply)
        return serviceSilent(reply.error());
    return std::optional(RunningService { *std::move(connection), statusIn(*reply) });
}

bool hasOtherDevices(const RunningService& running)
{
    if (!running.status || running.status->multiplexer.empty())
        return false;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    const char* variable = std::getenv("USBMUXD_SOCKET_ADDRESS");
    return running.status->multiplexer != (variable && *variable ? variable : kUsualMultiplexer);
}

Result<bool> stopService()
{
    const auto connection = TDW_TRY(connectToRunningService());
    if (!connection)
        return false;
    const auto reply = askService(*connection, { "statusWithReply:", 1, {} });
    if (!reply)
        return killService(*connection, reply.error());
    // The end of its process where that is known, otherwise the end of the connection to it.
    const auto status = statusIn(*reply);
    const FileHandle process = openProcess(status ? status->process : 0);
    TDW_TRY(sendMessage(*connection, { "terminate", 0, {} }));
    const int end = process.isOpen() ? process.descriptor() : connection->descriptor();
    if (waitUntilReadable(end, Clock::now() + kStopBound))
        return true;
    return killService(*connection, Error::posix(ETIMEDOUT, "Waiting for the service to end"));
}

} // namespace tdw::cli
