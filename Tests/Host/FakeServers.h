#pragma once

#include "Platform/System/Bundle.h"
#include "Platform/System/FileHandle.h"
#include "Platform/System/Process.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

/// Writes a text to a standard stream, as a server of the tests does.
inline void print(int descriptor, std::string_view text)
{
    (void)tdw::writeToDescriptor(descriptor, std::as_bytes(std::span(text)));
}

/// A descendant of a server of the tests, which does `job`, keeps both pipes open, and holds a lock
/// until its end.
inline void leaveGrandchildBehind(const char* job, const char* lockFile, bool inAGroupOfItsOwn)
{
    const int lock = open(lockFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    flock(lock, LOCK_EX);
    tdw::LaunchOptions options;
    options.executable = "/proc/self/exe";
    options.programName = "tdw_child";
    options.arguments = { job };
    options.standardInput = lock; // an open lock file is what carries the lock into the grandchild
    options.ownProcessGroup = inAGroupOfItsOwn;
    // Left behind means that nobody waits for it, its parent included.
    static auto grandchild = tdw::Process::launch(options);
}

/// A directory of executables, with this test's own binary in it under the name "tdw_child".
class FakeServers {
public:
    FakeServers()
        : m_directory(std::filesystem::temp_directory_path() / "tidewell-host-XXXXXX")
    {
        std::string name = m_directory;
        m_directory = mkdtemp(name.data());
        add("tdw_child");
    }
    FakeServers(const FakeServers&) = delete;
    FakeServers& operator=(const FakeServers&) = delete;
    ~FakeServers() { std::filesystem::remove_all(m_directory); }

    void add(const std::string& name, std::filesystem::perms mode = std::filesystem::perms(0755))
    {
        std::filesystem::copy_file("/proc/self/exe", m_directory / name);
        std::filesystem::permissions(m_directory / name, mode);
    }

    tdw::Bundle bundle() const { return tdw::Bundle(m_directory); }
    std::filesystem::path path(const std::string& name) const { return m_directory / name; }

private:
    std::filesystem::path m_directory;
};
