#include "Platform/System/RuntimeDirectory.h"

#include "Platform/System/Trust.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace tdw {

namespace {

namespace fs = std::filesystem;

constexpr mode_t kOthersMask = 077;

fs::path pathInEnvironment(const char* name)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no code here changes the environment
    const char* value = std::getenv(name);
    fs::path path = value ? value : "";
    return path.is_absolute() ? path : fs::path();
}

/// Whether a directory is this user's own: a program that runs as root through sudo may still see
/// those of the caller, and makes nothing there.
bool isOwnDirectory(const fs::path& path)
{
    struct stat status { };
    return !path.empty() && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)
        && status.st_uid == ::geteuid();
}

Result<fs::path> homeDirectory()
{
    if (fs::path home = pathInEnvironment("HOME"); isOwnDirectory(home))
        return home;
    std::array<char, 4096> buffer {};
    passwd entry {};
    passwd* found = nullptr;
    (void)::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
    if (!found || *found->pw_dir != '/' || !isOwnDirectory(found->pw_dir))
        return Error::posix(ENOENT,
            "There is no place for a socket: neither XDG_RUNTIME_DIR nor HOME names a directory of "
            "user id "
                + std::to_string(::geteuid()) + ", and its account has none");
    return fs::path(found->pw_dir);
}

Result<void> makePrivateDirectory(const fs::path& path)
{
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        const int code = errno;
        return Error::posix(code, "Cannot create the directory " + path.string());
    }
    return {};
}

Result<void> verifyOwner(const fs::path& path)
{
    if (isOwnDirectory(path))
        return {};
    return Error(kCocoaErrorDomain, kUntrustedPeerError,
        std::string_view("\"" + path.string() + "\" must be a directory of user id "
            + std::to_string(::geteuid()) + "; change that with chown"));
}

Result<void> verifyPrivateDirectory(const fs::path& path)
{
    struct stat status { };
    if (::lstat(path.c_str(), &status) != 0) {
        const int code = errno;
        return Error::posix(code, "Cannot use the directory " + path.string());
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid()
        || (status.st_mode & kOthersMask) != 0)
        return Error(kCocoaErrorDomain, kUntrustedPeerError,
            std::string_view("\"" + path.string() + "\" must be a directory of user id "
                + std::to_string(::geteuid()) + " that nobody else may enter (mode 0700)"));
    return {};
}

} // namespace

Result<fs::path> runtimeDirectory(std::string_view name)
{
    fs::path directory = pathInEnvironment("XDG_RUNTIME_DIR");
    if (!isOwnDirectory(directory)) {
        directory = TDW_TRY(homeDirectory());
        for (const std::string_view part : { std::string_view(".cache"), name }) {
            TDW_TRY(makePrivateDirectory(directory /= part));
            TDW_TRY(verifyOwner(directory));
        }
        directory /= "run";
    } else {
        directory /= name;
    }
    TDW_TRY(makePrivateDirectory(directory));
    TDW_TRY(verifyPrivateDirectory(directory));
    return directory;
}

} // namespace tdw
