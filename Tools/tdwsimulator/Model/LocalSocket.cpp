#include "Model/LocalSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tdw::simulator {

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

FileHandle streamSocket()
{
    return FileHandle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

const sockaddr* generic(const sockaddr_un& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

/// The permissions of a socket are there from its creation; the umask is the process's own.
class PrivateUmask {
public:
    PrivateUmask()
        : m_previous(::umask(0177))
    {
    }
    PrivateUmask(const PrivateUmask&) = delete;
    PrivateUmask& operator=(const PrivateUmask&) = delete;
    ~PrivateUmask() { ::umask(m_previous); }

private:
    mode_t m_previous;
};

} // namespace

Result<FileHandle> listenOnLocalSocket(const std::filesystem::path& path)
{
    const sockaddr_un address = TDW_TRY(addressOf(path));
    FileHandle socket = streamSocket();
    if (!socket.isOpen())
        return Error::posix(errno, "Cannot create a socket for " + path.string());
    const PrivateUmask umask;
    int bound = ::bind(socket.descriptor(), generic(address), sizeof address);
    if (bound != 0 && errno == EADDRINUSE && !connectToLocalSocket(path)) {
        ::unlink(path.c_str());
        bound = ::bind(socket.descriptor(), generic(address), sizeof address);
    }
    if (bound != 0 || ::listen(socket.descriptor(), SOMAXCONN) != 0)
        return Error::posix(errno, "Cannot listen on " + path.string());
    return socket;
}

Result<FileHandle> connectToLocalSocket(const std::filesystem::path& path)
{
    const sockaddr_un address = TDW_TRY(addressOf(path));
    FileHandle socket = streamSocket();
    if (!socket.isOpen())
        return Error::posix(errno, "Cannot create a socket for " + path.string());
    if (::connect(socket.descriptor(), generic(address), sizeof address) != 0)
        return Error::posix(errno, "Cannot connect to " + path.string());
    return socket;
}

} // namespace tdw::simulator
