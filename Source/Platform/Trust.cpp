#include "Platform/Trust.h"

#include "Platform/FileHandle.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string_view>

namespace tdw {

namespace {

Error refusal(const std::string& path, std::string_view rule)
{
    return Error(kCocoaErrorDomain, kUntrustedExecutableError,
        std::string_view('"' + path + "\" " + std::string(rule)));
}

std::string modeText(mode_t mode)
{
    std::array<char, 16> text {};
    (void)std::snprintf(text.data(), text.size(), "%04o", mode & 07777U);
    return text.data();
}

/// A file held open for looking at it only, so that every question is about the same file.
struct HeldFile {
    FileHandle handle;
    std::string resolvedPath;
    struct stat status;

    static Result<HeldFile> open(const std::string& path, int flags)
    {
        HeldFile file { FileHandle(::open(path.c_str(), flags | O_PATH | O_CLOEXEC)), {}, {} };
        std::array<char, PATH_MAX> target {};
        ssize_t length = -1;
        if (file.handle.isOpen() && ::fstat(file.handle.descriptor(), &file.status) == 0)
            length = ::readlink(file.descriptorPath().c_str(), target.data(), target.size());
        if (length < 0)
            return Error::posix(errno, "Cannot open " + path);
        file.resolvedPath.assign(target.data(), static_cast<std::size_t>(length));
        return file;
    }

    std::string descriptorPath() const
    {
        return "/proc/self/fd/" + std::to_string(handle.descriptor());
    }
};

Result<void> verifyOnlyOwnersCanWrite(const HeldFile& file)
{
    const uid_t self = ::geteuid();
    const uid_t owner = file.status.st_uid;
    const mode_t mode = file.status.st_mode;
    if (owner != 0 && owner != self)
        return refusal(file.resolvedPath,
            "belongs to user id " + std::to_string(owner) + ", neither to root nor to user id "
                + std::to_string(self) + "; change that with chown");
    if ((mode & S_IWOTH) != 0)
        return refusal(file.resolvedPath,
            "is writable by everybody (mode " + modeText(mode) + "); remove that with chmod go-w");
    if ((mode & S_IWGRP) != 0)
        return refusal(file.resolvedPath,
            "is writable by its group (mode " + modeText(mode) + "); remove that with chmod g-w");
    return {};
}

/// Checks the directories from `path`'s own up to `top`, which is known to be one of its parents.
Result<void> verifyDirectories(const std::string& path, const HeldFile& top)
{
    std::string directory = path.substr(0, path.rfind('/'));
    while (directory.size() > top.resolvedPath.size()) {
        const HeldFile held = TDW_TRY(HeldFile::open(directory, O_DIRECTORY));
        TDW_TRY(verifyOnlyOwnersCanWrite(held));
        directory.resize(directory.rfind('/'));
    }
    return verifyOnlyOwnersCanWrite(top);
}

} // namespace

Result<std::string> verifyExecutable(const std::string& path, const std::string& directory)
{
    const HeldFile top = TDW_TRY(HeldFile::open(directory, O_DIRECTORY));
    const HeldFile file = TDW_TRY(HeldFile::open(path, 0));
    const mode_t mode = file.status.st_mode;
    if (!file.resolvedPath.starts_with(top.resolvedPath + "/"))
        return refusal(path,
            "leads to \"" + file.resolvedPath + "\", outside \"" + top.resolvedPath
                + "\"; put the executable itself there");
    if (!S_ISREG(mode))
        return refusal(file.resolvedPath, "is not a regular file; put the executable itself there");
    if (::faccessat(AT_FDCWD, file.descriptorPath().c_str(), X_OK, AT_EACCESS) != 0)
        return refusal(file.resolvedPath,
            "is not executable for user id " + std::to_string(::geteuid()) + " (mode "
                + modeText(mode) + "); allow that with chmod a+x");
    TDW_TRY(verifyOnlyOwnersCanWrite(file));
    TDW_TRY(verifyDirectories(file.resolvedPath, top));
    return file.resolvedPath;
}

Result<void> verifyPeer(int socket)
{
    ucred peer {};
    socklen_t length = sizeof peer;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
        return Error::posix(errno, "Cannot tell whose process is at the socket's other end");
    // A socket that is not connected, or not local, has no peer and says so with this identifier.
    if (peer.pid == 0 && peer.uid == static_cast<uid_t>(-1))
        return Error::posix(ENOTCONN, "Cannot tell whose process is at the socket's other end");
    const uid_t self = ::geteuid();
    if (peer.uid != 0 && peer.uid != self)
        return Error(kCocoaErrorDomain, kUntrustedPeerError,
            std::string_view("The process at the other end runs as user id "
                + std::to_string(peer.uid) + ", and only root and user id " + std::to_string(self)
                + " are accepted"));
    return {};
}

} // namespace tdw
