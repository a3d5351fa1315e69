#include "Usb/MuxDaemon.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

namespace tdw::simulator {

namespace {

bool writeText(const char* path, const std::string& text)
{
    const FileHandle file(::open(path, O_WRONLY | O_CLOEXEC));
    return file.isOpen()
        && ::write(file.descriptor(), text.data(), text.size())
        == static_cast<ssize_t>(text.size());
}

/// Root gets a mount namespace alone, another user one inside a user namespace of its own.
bool leaveNamespaces()
{
    if (::unshare(CLONE_NEWNS) == 0)
        return true;
    const auto user = std::to_string(::geteuid());
    const auto group = std::to_string(::getegid());
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeText("/proc/self/setgroups", "deny")
        && writeText("/proc/self/uid_map", user + " " + user + " 1")
        && writeText("/proc/self/gid_map", group + " " + group + " 1");
}

} // namespace

Error becomeMuxDaemon(const std::filesystem::path& directory, const std::filesystem::path& program)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!leaveNamespaces())
        return Error::posix(errno, "Cannot make a mount namespace for " + program.string());
    const auto run = directory / "run";
    const auto lib = directory / "lib";
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || ::mount(run.c_str(), "/run", nullptr, MS_BIND, nullptr) != 0
        || ::mount(lib.c_str(), "/var/lib", nullptr, MS_BIND, nullptr) != 0)
        return Error::posix(errno, "Cannot mount the directories for " + program.string());
    // As the system's unit does, but for the user, and with what it does in the log.
    ::execl(program.c_str(), "usbmuxd", "--systemd", "-v", static_cast<char*>(nullptr));
    return Error::posix(errno, "Cannot start " + program.string());
}

} // namespace tdw::simulator
