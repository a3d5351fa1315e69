#include "Platform/System/FileHandle.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace tdw {

namespace {

constexpr std::size_t kReadChunkBytes = std::size_t { 64 } * 1024;

/// Blocks until a non-blocking descriptor is ready again.
void waitUntilReady(int descriptor, short events)
{
    pollfd entry { descriptor, events, 0 };
    while (poll(&entry, 1, -1) < 0 && errno == EINTR) { }
}

} // namespace

FileHandle::FileHandle(FileHandle&& other) noexcept
    : m_descriptor(other.release())
{
}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept
{
    if (this != &other) {
        close();
        m_descriptor = other.release();
    }
    return *this;
}

FileHandle::~FileHandle()
{
    close();
}

int FileHandle::release()
{
    return std::exchange(m_descriptor, -1);
}

void FileHandle::close()
{
    // Linux frees the descriptor even when close is interrupted, so it is never tried twice.
    if (m_descriptor >= 0)
        ::close(release());
}

// NOLINTNEXTLINE(readability-make-member-function-const): it moves the descriptor along
Result<Data> FileHandle::readToEnd()
{
    return readDescriptorToEnd(m_descriptor);
}

// NOLINTNEXTLINE(readability-make-member-function-const): it changes what is behind it
Result<void> FileHandle::write(std::span<const std::byte> bytes)
{
    return writeToDescriptor(m_descriptor, bytes);
}

Result<void> writeToDescriptor(int descriptor, std::span<const std::byte> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        else if (errno == EAGAIN)
            waitUntilReady(descriptor, POLLOUT);
        else if (errno != EINTR) {
            const int code = errno;
            return Error::posix(code, "Cannot write to descriptor " + std::to_string(descriptor));
        }
    }
    return {};
}

Result<Data> readDescriptorToEnd(int descriptor)
{
    Data result;
    std::array<std::byte, kReadChunkBytes> chunk {};
    while (true) {
        const ssize_t count = ::read(descriptor, chunk.data(), chunk.size());
        if (count == 0)
            return result;
        if (count > 0)
            result.insert(result.end(), chunk.begin(), chunk.begin() + count);
        else if (errno == EAGAIN)
            waitUntilReady(descriptor, POLLIN);
        else if (errno != EINTR) {
            const int code = errno;
            return Error::posix(code, "Cannot read descriptor " + std::to_string(descriptor));
        }
    }
}

Result<Pipe> Pipe::create()
{
    std::array<int, 2> ends {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return Error::posix(errno, "Cannot make a pipe");
    return Pipe { FileHandle(ends[0]), FileHandle(ends[1]) };
}

} // namespace tdw
