#include "Host/ChildServer.h"

#include "Platform/System/Trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tdw {

Result<void> ServerStream::watch(EventLoop& loop, EventLoop::Handler readable)
{
    m_source = TDW_TRY(loop.whenReadable(m_reader.descriptor(), std::move(readable)));
    return {};
}

std::span<const std::byte> ServerStream::read(Chunk& chunk)
{
    if (!m_reader.isOpen())
        return {};
    const ssize_t count = ::read(m_reader.descriptor(), chunk.data(), chunk.size());
    if (count > 0)
        return std::span(chunk).first(static_cast<std::size_t>(count));
    if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
        m_source = {};
        m_reader.close();
    }
    return {};
}

Result<ChildServer> ChildServer::start(const ServerLaunch& launch)
{
    Pipe output = TDW_TRY(Pipe::create());
    Pipe standardError = TDW_TRY(Pipe::create());
    TDW_TRY(makeNonBlocking(output.reader));
    TDW_TRY(makeNonBlocking(standardError.reader));

    LaunchOptions options;
    options.executable = launch.executable;
    options.programName = launch.serverName;
    options.arguments = launch.arguments;
    options.standardOutput = output.writer.descriptor();
    options.standardError = standardError.writer.descriptor();
    options.ownProcessGroup = true;
    if (!launch.trace.empty())
        options.environment.emplace_back(kTraceVariable, launch.trace);
    Process process = TDW_TRY(Process::launch(options));
    // The writing ends go here: from now on the server alone holds them, and its end shows in them.
    return ChildServer { std::move(process), ServerStream(std::move(output.reader)),
        ServerStream(std::move(standardError.reader)) };
}

void ChildServer::kill()
{
    process.sendSignal(SIGKILL);
}

Result<void> makeNonBlocking(const FileHandle& handle)
{
    const int flags = ::fcntl(handle.descriptor(), F_GETFL);
    if (flags < 0 || ::fcntl(handle.descriptor(), F_SETFL, flags | O_NONBLOCK) < 0)
        return Error::posix(errno, "Cannot make a pipe non-blocking");
    return {};
}

} // namespace tdw
