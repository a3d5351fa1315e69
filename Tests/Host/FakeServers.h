#pragma once

#include "Platform/System/Bundle.h"
#include "Platform/Values/Value.h"
#include "ProcessResources.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

/// The envelope of an answer of so many bytes.
tdw::Value envelopeOf(std::size_t payloadBytes);

std::string xmlOf(const tdw::Value& envelope);

/// More than a pipe holds.
inline constexpr std::size_t kFlood = std::size_t { 8 } << 20;

/// A directory of executables, with this test's own binary in it under the name "tdw_child": its
/// first argument is what it does.
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
    void TearDown() override { EXPECT_TRUE(ProcessResources::settleWithin(m_before)); }

    inline static std::unique_ptr<FakeServers> s_servers;
    ProcessResources m_before;
};
