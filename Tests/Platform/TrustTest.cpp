#include "Platform/System/Trust.h"

#include "Platform/System/FileHandle.h"
#include "Platform/System/PrivateGroup.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

using namespace tdw;
namespace fs = std::filesystem;

namespace {

constexpr uid_t kOtherUser = 54321;

/// Groups that every Debian has: the primary one of several users, and one without members.
constexpr gid_t kSharedGroup = 65534;
constexpr gid_t kEmptyGroup = 42;

/// A directory "bin" with an executable "tdw", inside a private directory that goes in the end.
class TrustTest : public testing::Test {
protected:
    TrustTest()
    {
        fs::create_directories(sub());
        for (const auto& path : { tdw(), sub() + "/tdw", bin() + "/../outside" })
            FileHandle(::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0755)).close();
        makeTrustworthy();
    }

    void makeTrustworthy() const
    {
        for (const auto& path : { root(), bin(), sub(), tdw(), sub() + "/tdw" }) {
            EXPECT_EQ(::chown(path.c_str(), ::geteuid(), ::getegid()), 0);
            EXPECT_EQ(::chmod(path.c_str(), 0755), 0);
        }
    }

    /// Lets a group write, too; only root can give a file to any group.
    static void share(const std::string& path, gid_t group)
    {
        EXPECT_EQ(::chown(path.c_str(), ::geteuid(), group), 0);
        EXPECT_EQ(::chmod(path.c_str(), 0775), 0);
    }

    std::string root() const { return m_root; }
    std::string bin() const { return m_root / "bin"; }
    std::string sub() const { return bin() + "/sub"; }
    std::string tdw() const { return bin() + "/tdw"; }

private:
    const TemporaryDirectory m_directory;
    const fs::path m_root = fs::canonical(m_directory.path());
};

} // namespace

TEST_F(TrustTest, AcceptsAnExecutableAndGivesAPathThatStaysItsOwn)
{
    fs::create_symlink("tdw", bin() + "/tdw_list");
    fs::create_symlink("sub/tdw", bin() + "/tdw_info");
    fs::create_directory_symlink(bin(), bin() + "/../link");
    const struct {
        std::string path;
        std::string accepted;
    } rows[] {
        { bin() + "/tdw", tdw() },
        { bin() + "/../link/tdw", tdw() },
        { bin() + "/../link/tdw_list", bin() + "/tdw_list" },
        { bin() + "/../link/tdw_info", sub() + "/tdw" },
    };
    for (const auto& row : rows) {
        auto result = verifyExecutable(row.path, Bundle(bin() + "/../link"));
        ASSERT_TRUE(result) << result.error().failureReason();
        EXPECT_EQ(*result, row.accepted);
    }
    // With umask 002, where each user has a group, and below a directory like /tmp.
    if (isGroupOfOneUser(::getegid(), ::geteuid())) {
        for (const auto& path : { bin(), tdw() })
            EXPECT_EQ(::chmod(path.c_str(), 0775), 0);
        EXPECT_TRUE(verifyExecutable(tdw(), Bundle(bin())));
    }
    if (::geteuid() == 0) {
        EXPECT_EQ(::chmod(root().c_str(), 01777), 0);
        EXPECT_TRUE(verifyExecutable(tdw(), Bundle(bin())));
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
        { [&] { share(tdw(), kSharedGroup); }, tdw(),
            "/bin/tdw\" is writable by group id 65534, which is not its owner's alone (mode 0775); "
            "mend it with: chmod g-w \""
                + tdw() + '"',
            true },
        { [&] { ::chmod(tdw().c_str(), 0757); }, tdw(),
            "is writable by every user (mode 0757); mend it with: chmod o-w \"" + tdw() + '"' },
        { [&] { (void)!::chown(tdw().c_str(), kOtherUser, 0); }, tdw(),
            "/bin/tdw\" belongs to user id 54321", true },
        { [&] { share(sub(), kEmptyGroup); }, sub() + "/tdw",
            "/bin/sub\" is writable by group id 42", true },
        { [&] { ::chmod(bin().c_str(), 0777); }, sub() + "/tdw",
            "/bin\" is writable by every user" },
        { [&] { ::chmod(root().c_str(), 0777); }, tdw(),
            '"' + root() + "\" is writable by every user" },
        { [&] { (void)!::lchown((bin() + "/tdw_foreign").c_str(), kOtherUser, 0); },
            bin() + "/tdw_foreign", "/bin/tdw_foreign\" belongs to user id 54321", true },
        { [&] { (void)!::chown(bin().c_str(), kOtherUser, 0); }, tdw(),
            "/bin\" belongs to user id 54321", true },
    };
    fs::create_symlink("tdw", bin() + "/tdw_foreign");
    for (const auto& row : rows) {
        if (row.needsRoot && ::geteuid() != 0) {
            std::printf("left out, since only root can give files away: %s\n", row.reason.c_str());
            continue;
        }
        makeTrustworthy();
        row.breakRule();
        auto result = verifyExecutable(row.path, Bundle(bin()));
        ASSERT_FALSE(result) << row.reason;
        EXPECT_EQ(result.error().code(), kUntrustedExecutableError);
        EXPECT_NE(result.error().failureReason().find(row.reason), std::string::npos)
            << result.error().failureReason();
    }
    EXPECT_EQ(verifyExecutable(bin() + "/none", Bundle(bin())).error().code(), ENOENT);
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

    // A socket remembers who made it: to other users root is welcome.
    ASSERT_EQ(::seteuid(kOtherUser), 0);
    EXPECT_TRUE(verifyPeer(first.descriptor()));
    ASSERT_EQ(::seteuid(0), 0);
}
