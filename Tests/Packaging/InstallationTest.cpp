#include "EndToEnd/SimulatorProcess.h"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <string>

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

// What is installed, as somebody uses it who has nothing else of us.

namespace {

namespace fs = std::filesystem;

class Installation : public testing::Test {
protected:
    void SetUp() override
    {
        std::string name = fs::temp_directory_path() / "tidewell-installation-XXXXXX";
        m_directory = mkdtemp(name.data());
        run("cmake --install " TIDEWELL_BUILD_DIR " --prefix " + path("first"));
        fs::rename(path("first"), path("moved"));
    }

    void TearDown() override { fs::remove_all(m_directory); }

    std::string path(const std::string& name) const { return m_directory / name; }

    /// Runs a line of shell script that is to succeed; returns what it printed.
    std::string run(const std::string& script) const
    {
        const CommandOutcome outcome = runCommandBounded({ "/bin/sh", "-ec", script },
            { { "PKG_CONFIG_PATH", path("moved/" TIDEWELL_LIBDIR "/pkgconfig") },
                { "LD_LIBRARY_PATH", path("moved/" TIDEWELL_LIBDIR) } },
            100s);
        EXPECT_EQ(outcome.termination, tdw::Termination {}) << script << "\n" << outcome.output;
        return outcome.output;
    }

    /// The example lists the devices; afterwards a service runs, from the moved installation.
    void expectToWork(const std::string& example) const
    {
        const std::string tool = path("moved/bin/tidewell");
        const std::string output = run(path("moved/bin/tdwsimulator") + " run -- /bin/sh -ec '"
            + example + "; " + tool + " service status | sed -n \"s/^Process *//p\" | "
            + "(read pid; readlink /proc/$pid/exe); " + tool + " list --direct'");
        EXPECT_THAT(output, StartsWith("00008130-00FACADE0010001C\n"));
        EXPECT_THAT(output, HasSubstr("00008110-00FACADE0012002E\n/"));
        EXPECT_THAT(output, HasSubstr("\n" + fs::canonical(path("moved")).string() + "/"));
        EXPECT_THAT(output, HasSubstr("\nUDID  "));
    }

private:
    fs::path m_directory;
};

} // namespace

TEST_F(Installation, IsFoundByCMakeAndWorksWhereverItIsMovedTo)
{
    run("cmake -S " TIDEWELL_SOURCE_DIR "/Examples -B " + path("build")
        + " -DCMAKE_PREFIX_PATH=" + path("moved")
        + " -DCMAKE_CXX_COMPILER=" TIDEWELL_CXX_COMPILER " -DCMAKE_CXX_FLAGS='" TIDEWELL_CXX_FLAGS
          "' && cmake --build "
        + path("build"));
    expectToWork(path("build/device-list"));
}

TEST_F(Installation, IsFoundByPkgConfig)
{
    for (const std::string example : { "device-list", "device-events" })
        run(TIDEWELL_CXX_COMPILER " " TIDEWELL_CXX_FLAGS " -std=c++20 " TIDEWELL_SOURCE_DIR
                                  "/Examples/"
            + example + ".cpp $(pkg-config --cflags --libs tidewell) -o " + path(example));
    expectToWork(path("device-list"));
}
