#pragma once

#include "Platform/System/Bundle.h"
#include "Platform/System/FileHandle.h"
#include "Platform/System/Process.h"
#include "ProcessResources.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

#include <sys/file.h>

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
    FakeServers() { add("tdw_child"); }

    void add(const std::string& name, std::filesystem::perms mode = std::filesystem::perms(0755))
    {
        std::filesystem::copy_file("/proc/self/exe", path(name));
        std::filesystem::permissions(path(name), mode);
    }

    tdw::Bundle bundle() const { return tdw::Bundle(m_directory.path()); }
    std::filesystem::path path(const std::string& name) const { return m_directory.path() / name; }

private:
    const TemporaryDirectory m_directory;
};

/// Tests with such a directory, each of which gives back what the process holds for it.
class FakeServersTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_servers = std::make_unique<FakeServers>();
        // The thread sanitizer starts a thread of its own along with a program's first.
        std::thread([] {}).join();
    }
    static void TearDownTestSuite() { s_servers.reset(); }

    void SetUp() override { m_before = ProcessResources::now(); }
    void TearDown() override { EXPECT_EQ(ProcessResources::settling(m_before), m_before); }

    inline static std::unique_ptr<FakeServers> s_servers;
    ProcessResources m_before;
};
