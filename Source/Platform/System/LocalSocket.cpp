#include "Platform/System/LocalSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tdw {

namespace {

Result<sockaddr_un> addressOf(const std::filesystem::path& path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const std::string& name = path.native();
    if (name.empty() || name.size() >= sizeof address.sun_path)
        return Error::posix(ENAMETOOLONG, "Cannot use the socket " + name);
    std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
    return address;
}

FileHandle streamSocket(int flags)
{
    return FileHandle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

const sockaddr* generic(const sockaddr_un& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

} // namespace

Result<FileHandle> listenOnLocalSocket(const std::filesystem::path& path)
{
    const sockaddr_un address = TDW_TRY(addressOf(path));
    FileHandle socket = streamSocket(0);
    // The mode goes with the socket to its name, which therefore never has another one.
    if (!socket.isOpen() || ::fchmod(socket.descriptor(), 0600) != 0) {
        const int code = errno;
        return Error::posix(code, "Cannot create a socket for " + path.string());
    }
    const auto bindSocket = [&] {
        return ::bind(socket.descriptor(), generic(address), sizeof address) == 0 ? 0 : errno;
    };
    int code = bindSocket();
    if (code == EADDRINUSE && !connectToLocalSocket(path)) {
        ::unlink(path.c_str());
        code = bindSocket();
    }
    if (code == 0 && ::listen(socket.descriptor(), SOMAXCONN) != 0)
        code = errno;
    if (code != 0)
        return Error::posix(code, "Cannot listen on " + path.string());
    return socket;
}

Result<FileHandle> connectToLocalSocket(const std::filesystem::path& path)
{
    const sockaddr_un address = TDW_TRY(addressOf(path));
    // Where more wait to be accepted than the listener allows, a blocking socket waits without end.
    FileHandle socket = streamSocket(SOCK_NONBLOCK);
    if (!socket.isOpen()) {
        const int code = errno;
        return Error::posix(code, "Cannot create a socket for " + path.string());
    }
    if (::connect(socket.descriptor(), generic(address), sizeof address) != 0) {
        const int code = errno;
        return Error::posix(code, "Cannot connect to " + path.string());
    }
    const int flags = ::fcntl(socket.descriptor(), F_GETFL);
    if (flags < 0 || ::fcntl(socket.descriptor(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
        const int code = errno;
        return Error::posix(code, "Cannot make the socket for " + path.string() + " blocking");
    }
    return socket;
}

} // namespace tdw
