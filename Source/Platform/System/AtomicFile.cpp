#include "Platform/System/AtomicFile.h"

#include "Platform/System/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tdw {

namespace {

Error notWritten(const std::string& path, int error)
{
    return Error::posix(error, "Cannot write \"" + path + "\"");
}

Error alreadyThere(const std::string& path)
{
    return Error(kPosixErrorDomain, EEXIST, "\"" + path + "\" is there already");
}

/// Keeps an interruption waiting for the few milliseconds of the writing.
class InterruptionsWait {
public:
    InterruptionsWait()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        (void)pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    }
    InterruptionsWait(const InterruptionsWait&) = delete;
    InterruptionsWait& operator=(const InterruptionsWait&) = delete;
    ~InterruptionsWait() { (void)pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before {};
};

/// A file with a name of its own beside the one that it will become, gone again unless it does.
class TemporaryFile {
public:
    /// Errors: `kPosixErrorDomain`
    static Result<TemporaryFile> createBeside(const std::filesystem::path& target)
    {
        std::string name = target.parent_path() / ".tidewell-XXXXXX";
        const int descriptor = mkostemp(name.data(), O_CLOEXEC);
        if (descriptor < 0)
            return Error::posix(errno, "Cannot create a file");
        return TemporaryFile(std::move(name), FileHandle(descriptor));
    }

    TemporaryFile(TemporaryFile&& other) noexcept
        : m_name(std::exchange(other.m_name, {}))
        , m_file(std::move(other.m_file))
    {
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    TemporaryFile& operator=(TemporaryFile&&) = delete;
    ~TemporaryFile()
    {
        if (!m_name.empty())
            unlink(m_name.c_str());
    }

    /// @param mode the permissions that it gets
    /// @return 0 or an error number
    int fill(std::span<const std::byte> bytes, mode_t mode)
    {
        if (const auto written = m_file.write(bytes); !written)
            return static_cast<int>(written.error().code());
        if (fchmod(m_file.descriptor(), mode) != 0 || fsync(m_file.descriptor()) != 0)
            return errno;
        return 0;
    }

    /// @return 0 or an error number
    int replace(const std::filesystem::path& target)
    {
        if (rename(m_name.c_str(), target.c_str()) != 0)
            return errno;
        m_name.clear();
        return 0;
    }

    /// Becomes `target` where there is none.
    /// @return 0 or an error number: EEXIST where there is one
    int take(const std::filesystem::path& target)
    {
        if (renameat2(AT_FDCWD, m_name.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
            m_name.clear();
            return 0;
        }
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
        // This file system does not know how; the name that is left over goes with this object.
        return link(m_name.c_str(), target.c_str()) == 0 ? 0 : errno;
    }

private:
    TemporaryFile(std::string name, FileHandle file)
        : m_name(std::move(name))
        , m_file(std::move(file))
    {
    }

    std::string m_name;
    FileHandle m_file;
};

/// The file itself where `path` is a symbolic link to it.
std::filesystem::path resolved(const std::string& path)
{
    std::error_code ignored;
    auto target = std::filesystem::canonical(path, ignored);
    return target.empty() ? std::filesystem::path(path) : target;
}

/// The permissions of the file that is there, or those that the system gives to a new one.
mode_t modeFor(const std::filesystem::path& target)
{
    struct stat status { };
    if (stat(target.c_str(), &status) == 0)
        return status.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

/// Makes the new name survive a crash. What cannot be done about it is not worth an error.
void syncDirectoryOf(const std::filesystem::path& target)
{
    const auto parent = target.parent_path();
    const FileHandle directory(
        open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.isOpen())
        (void)fsync(directory.descriptor());
}

} // namespace

Result<void> checkFileDestination(const std::string& path, Overwrite overwrite)
{
    struct stat status { };
    if (lstat(path.c_str(), &status) != 0) {
        const int error = errno;
        return error == ENOENT ? Result<void>() : notWritten(path, error);
    }
    const bool isThere = stat(path.c_str(), &status) == 0;
    if (isThere && !S_ISREG(status.st_mode))
        return Error(kPosixErrorDomain, EINVAL, "\"" + path + "\" is no ordinary file");
    return overwrite == Overwrite::Yes ? Result<void>() : alreadyThere(path);
}

Result<void> writeWholeFile(const std::string& path, std::span<const std::byte> bytes,
    Overwrite overwrite, std::optional<mode_t> mode)
{
    TDW_TRY(checkFileDestination(path, overwrite));
    const InterruptionsWait signals;
    // A limit on the size of files is an error like any other.
    std::signal(SIGXFSZ, SIG_IGN);

    const std::filesystem::path target
        = overwrite == Overwrite::Yes ? resolved(path) : std::filesystem::path(path);
    auto file = TemporaryFile::createBeside(target);
    if (!file)
        return notWritten(path, static_cast<int>(file.error().code()));
    int error = file->fill(bytes, mode ? *mode : modeFor(target));
    if (error == 0)
        error = overwrite == Overwrite::Yes ? file->replace(target) : file->take(target);
    if (error == EEXIST)
        return alreadyThere(path);
    if (error != 0)
        return notWritten(path, error);
    syncDirectoryOf(target);
    return {};
}

} // namespace tdw
