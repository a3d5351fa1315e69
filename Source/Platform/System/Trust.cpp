#include "Platform/System/Trust.h"

#include "Platform/System/FileHandle.h"
#include "Platform/System/PrivateGroup.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace tdw {

namespace {

namespace fs = std::filesystem;

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
struct PathDescriptor {
    std::string path;
    FileHandle handle;
    struct stat status;

    /// Opens `name` in `directory` without following a link in its place.
    static Result<PathDescriptor> open(int directory, const std::string& name, std::string path)
    {
        PathDescriptor file { std::move(path),
            FileHandle(::openat(directory, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC)), {} };
        if (!file.handle.isOpen() || ::fstat(file.handle.descriptor(), &file.status) != 0) {
            const int code = errno;
            return Error::posix(code, "Cannot open " + file.path);
        }
        return file;
    }
};

/// In a sticky directory only the owner of an entry replaces it, even where others may write.
bool isSharedDirectoryOfRoot(const struct stat& status)
{
    return S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0 && status.st_uid == 0;
}

/// Checks paths for one decision, and asks about each group once.
class PathVerifier {
public:
    /// Goes down from the root to an absolute path whose directories are no links, and checks each
    /// step before it takes the next: what has been passed can then be replaced by root and this
    /// user alone, so that the path goes on to mean the file that is returned, which may be a link.
    Result<PathDescriptor> verify(const std::string& path)
    {
        PathDescriptor current = TDW_TRY(PathDescriptor::open(AT_FDCWD, "/", "/"));
        TDW_TRY(verifyOnlyOwnersCanWrite(current));
        std::size_t begin = 1;
        while (begin < path.size()) {
            const std::size_t end = std::min(path.find('/', begin), path.size());
            current = TDW_TRY(PathDescriptor::open(
                current.handle.descriptor(), path.substr(begin, end - begin), path.substr(0, end)));
            TDW_TRY(verifyOnlyOwnersCanWrite(current));
            begin = end + 1;
        }
        return current;
    }

private:
    /// Asks only for the owner of a link: its mode means nothing.
    Result<void> verifyOnlyOwnersCanWrite(const PathDescriptor& file)
    {
        const uid_t self = ::geteuid();
        const uid_t owner = file.status.st_uid;
        const mode_t mode = file.status.st_mode;
        if (owner != 0 && owner != self)
            return refusal(file.path,
                "belongs to user id " + std::to_string(owner) + ", neither to root nor to user id "
                    + std::to_string(self) + "; install it where everything belongs to these");
        if (S_ISLNK(mode) || isSharedDirectoryOfRoot(file.status))
            return {};
        if ((mode & S_IWOTH) != 0)
            return refusal(file.path,
                "is writable by every user (mode " + modeText(mode)
                    + "); mend it with: chmod o-w \"" + file.path + '"');
        if ((mode & S_IWGRP) != 0 && !isGroupOfOwner(file.status))
            return refusal(file.path,
                "is writable by group id " + std::to_string(file.status.st_gid)
                    + ", which is not its owner's alone (mode " + modeText(mode)
                    + "); mend it with: chmod g-w \"" + file.path + '"');
        return {};
    }

    bool isGroupOfOwner(const struct stat& status)
    {
        const std::pair pair(status.st_gid, status.st_uid);
        if (m_groupOfOwner != pair && isGroupOfOneUser(pair.first, pair.second))
            m_groupOfOwner = pair;
        return m_groupOfOwner == pair;
    }

    /// The last group, with its owner, that was found to be the owner's alone.
    std::optional<std::pair<gid_t, uid_t>> m_groupOfOwner;
};

Result<fs::path> withLinksResolved(const fs::path& path)
{
    std::error_code error;
    const fs::path resolved = fs::canonical(path, error);
    if (error)
        return Error::posix(error.value(), "Cannot open " + path.string());
    return resolved;
}

/// Whether the link that was checked leads to `target` in its own directory. Such a link may stay
/// in the path: a program can tell by it under which name it is started.
bool leadsToNeighbour(const PathDescriptor& link, const fs::path& target)
{
    std::array<char, NAME_MAX> buffer {};
    const ssize_t length = ::readlinkat(link.handle.descriptor(), "", buffer.data(), buffer.size());
    const std::string_view text(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return !text.empty() && text.find('/') == std::string_view::npos
        && target == fs::path(link.path).replace_filename(text);
}

} // namespace

Result<std::string> verifyExecutable(const std::string& path, const Bundle& bundle)
{
    const fs::path directory = TDW_TRY(withLinksResolved(bundle.auxiliaryDirectory()));
    const fs::path resolved = TDW_TRY(withLinksResolved(path));
    if (!resolved.string().starts_with(directory.string() + "/"))
        return refusal(path,
            "leads to \"" + resolved.string() + "\", outside \"" + directory.string()
                + "\"; put the executable itself there");
    PathVerifier verifier;
    const PathDescriptor file = TDW_TRY(verifier.verify(resolved));
    const mode_t mode = file.status.st_mode;
    if (!S_ISREG(mode))
        return refusal(file.path, "is not a regular file; put the executable itself there");
    if (::faccessat(AT_FDCWD, resolved.c_str(), X_OK, AT_EACCESS) != 0)
        return refusal(file.path,
            "is not executable for user id " + std::to_string(::geteuid()) + " (mode "
                + modeText(mode) + "); mend it with: chmod a+x \"" + file.path + '"');
    if (!bundle.library().empty())
        TDW_TRY(verifier.verify(bundle.library()));

    const fs::path parent = TDW_TRY(withLinksResolved(fs::path(path).parent_path()));
    const PathDescriptor entry = TDW_TRY(verifier.verify(parent / fs::path(path).filename()));
    return leadsToNeighbour(entry, resolved) ? entry.path : resolved.string();
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
