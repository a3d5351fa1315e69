#include "Platform/System/RuntimeDirectory.h"

#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

#include <sys/syscall.h>

using namespace tdw;
namespace fs = std::filesystem;

TEST(RuntimeDirectory, IsMadeOnlyInDirectoriesOfTheUser)
{
    const TemporaryDirectory temporary;
    const fs::path& directory = temporary.path();
    fs::permissions(directory, fs::perms::all);
    const char* home = getenv("HOME");
    const std::string previousHome = home ? home : "/";
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    setenv("HOME", directory.c_str(), 1);
    EXPECT_EQ(*runtimeDirectory("product"), directory / "product");
    EXPECT_EQ(fs::status(directory / "product").permissions(), fs::perms::owner_all);
    fs::remove(directory / "product");
    unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(*runtimeDirectory("product"), directory / ".cache/product/run");
    fs::remove_all(directory / ".cache");

    if (geteuid() == 0) {
        setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
        // The user of this thread alone, who has no home.
        std::thread([] {
            ASSERT_EQ(syscall(SYS_setresuid, -1, 65534, -1), 0);
            EXPECT_FALSE(runtimeDirectory("product"));
        }).join();
        EXPECT_TRUE(fs::is_empty(directory)) << "nothing is made in another user's directory";
    }
    unsetenv("XDG_RUNTIME_DIR");
    setenv("HOME", previousHome.c_str(), 1);
}
