#include "Platform/Trust.h"

#include "Platform/FileHandle.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

using namespace tdw;
namespace fs = std::filesystem;

namespace {

constexpr uid_t kStranger = 54321;

/// A directory "bin" with an executable "tdw", inside a private directory that goes in the end.
class TrustTest : public testing::Test {
protected:
    TrustTest()
    {
        std::string pattern = testing::TempDir() + "tdw-trust-XXXXXX";
        m_root = fs::canonical(::mkdtemp(pattern.data()));
        fs::create_directories(sub());
        for (const auto& path : { tdw(), sub() + "/tdw", bin() + "/../outside" })
            FileHandle(::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0755)).close();
        makeTrustworthy();
    }
    ~TrustTest() override { fs::remove_all(m_root); }

    void makeTrustworthy() const
    {
        for (const auto& path : { bin(), sub(), tdw(), sub() + "/tdw" }) {
            EXPECT_EQ(::chown(path.c_str(), ::geteuid(), ::getegid()), 0);
            EXPECT_EQ(::chmod(path.c_str(), 0755), 0);
        }
    }

    std::string bin() const { return m_root / "bin"; }
    std::string sub() const { return bin() + "/sub"; }
    std::string tdw() const { return bin() + "/tdw"; }

private:
    fs::path m_root;
};

} // namespace

TEST_F(TrustTest, AcceptsAnExecutableAndGivesItsResolvedPath)
{
    fs::create_symlink("tdw", bin() + "/tdw_list");
    fs::create_directory_symlink(bin(), bin() + "/../link");
    for (const std::string& path :
        { bin() + "/tdw", bin() + "/tdw_list", bin() + "/../link/tdw" }) {
        auto result = verifyExecutable(path, bin() + "/../link");
        ASSERT_TRUE(result) << result.error().failureReason();
        EXPECT_EQ(*result, tdw());
    }
}

TEST_F(TrustTest, RefusesEachBrokenRuleInWords)
{
    const struct {
        std::function<void()> breakRule;
        std::string path;
        std::string reason;
        bool needsRoot = false;
    } rows[] {
        { [&] { fs::create_symlink("../outside", bin() + "/out"); }, bin() + "/out",
            "/bin/out\" leads to \"" + fs::canonical(bin() + "/..").string() + "/outside\"" },
        { [] {}, bin() + "/../outside", "outside \"" + bin() + '"' },
        { [] {}, bin(), "leads to" },
        { [] {}, sub(), "/sub\" is not a regular file" },
        { [&] { ::chmod(tdw().c_str(), 0644); }, tdw(), "is not executable" },
        { [&] { ::chmod(tdw().c_str(), 0775); }, tdw(),
            "/bin/tdw\" is writable by its group (mode 0775); remove that with chmod g-w" },
        { [&] { ::chmod(tdw().c_str(), 0757); }, tdw(), "is writable by everybody (mode 0757)" },
        { [&] { (void)!::chown(tdw().c_str(), kStranger, 0); }, tdw(),
            "/bin/tdw\" belongs to user id 54321", true },
        { [&] { ::chmod(sub().c_str(), 0775); }, sub() + "/tdw",
            "/bin/sub\" is writable by its group" },
        { [&] { ::chmod(bin().c_str(), 0777); }, sub() + "/tdw",
            "/bin\" is writable by everybody" },
        { [&] { (void)!::chown(bin().c_str(), kStranger, 0); }, tdw(),
            "/bin\" belongs to user id 54321", true },
    };
    for (const auto& row : rows) {
        if (row.needsRoot && ::geteuid() != 0) {
            std::puts("left out, since only root can give files away");
            continue;
        }
        makeTrustworthy();
        row.breakRule();
        auto result = verifyExecutable(row.path, bin());
        ASSERT_FALSE(result) << row.reason;
        EXPECT_EQ(result.error().code(), kUntrustedExecutableError);
        EXPECT_NE(result.error().failureReason().find(row.reason), std::string::npos)
            << result.error().failureReason();
    }
    EXPECT_EQ(verifyExecutable(bin() + "/none", bin()).error().code(), ENOENT);
}

TEST(Trust, AcceptsAPeerOfTheSameUserOnly)
{
    std::array<int, 2> sockets {};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
    const FileHandle first(sockets[0]);
    const FileHandle second(sockets[1]);
    EXPECT_TRUE(verifyPeer(first.descriptor()));
    const FileHandle unconnected(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(verifyPeer(unconnected.descriptor()).error().code(), ENOTCONN);
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can act for another user";

    // A socket remembers who made it: a stranger is refused, and to a stranger root is welcome.
    ASSERT_EQ(::seteuid(kStranger), 0);
    EXPECT_TRUE(verifyPeer(first.descriptor()));
    std::array<int, 2> foreign {};
    const int made = ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, foreign.data());
    ASSERT_EQ(::seteuid(0), 0);
    ASSERT_EQ(made, 0);
    const FileHandle third(foreign[0]);
    const FileHandle fourth(foreign[1]);
    auto result = verifyPeer(third.descriptor());
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code(), kUntrustedPeerError);
    EXPECT_EQ(result.error().failureReason(),
        "The process at the other end runs as user id 54321, and only root and user id 0 are "
        "accepted");
}
