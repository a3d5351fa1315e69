#include "EndToEnd/SimulatorProcess.h"
#include "Support/Testing.h"

using namespace matchers;

// What is installed, as an application uses it that has nothing else of us.

namespace {

namespace fs = std::filesystem;

class Installation : public testing::Test {
protected:
    void SetUp() override
    {
        // A umask that leaves everything to every user.
        runWithRecord("umask 000; cmake --install . --prefix " + path("first"));
        EXPECT_THAT(run("cat " + path("first/lib/systemd/user/tidewell-service.service")),
            HasSubstr("ExecStart=" + path("first/libexec/tidewell/tidewell-service") + "\n"));
        fs::rename(path("first"), path("moved"));
    }

    std::string path(const std::string& name) const { return m_directory.path() / name; }

    /// Runs a line of shell script that is to succeed; returns what it printed.
    std::string run(const std::string& script) const
    {
        const ToolRun outcome = runCommandBounded({ "/bin/sh", "-ec", script },
            { { "PKG_CONFIG_PATH", path("moved/" TIDEWELL_LIBDIR "/pkgconfig") },
                { "LD_LIBRARY_PATH", path("moved/" TIDEWELL_LIBDIR) } });
        EXPECT_EQ(outcome.termination, tdw::Termination {}) << script << "\n" << outcome.output;
        return outcome.output;
    }

    /// Runs a line in the build tree, alone, and keeps the record of what was installed from there.
    void runWithRecord(const std::string& script) const
    {
        const std::string records = "install_manifest.txt install_directories.txt";
        run("cd " TIDEWELL_BUILD_DIR "; exec 9>install.lock; flock 9; mkdir -p " + path("records")
            + "; for file in " + records + "; do [ ! -e $file ] || mv $file " + path("records")
            + "; done; " + script + "; rm -f " + records + "; find " + path("records")
            + " -type f -exec mv {} . \\;");
    }

    /// The example lists the devices; afterwards a service runs, from the moved installation.
    void expectToWork(const std::string& example) const
    {
        const std::string tool = path("moved/bin/tidewell");
        const std::string output = run(path("moved/bin/tdwsimulator") + " run -- /bin/sh -ec '"
            + example + "; " + tool + " service status | sed -n \"s/^Process *//p\" | "
            + "(read pid; readlink /proc/$pid/exe); " + tool + " list --direct; "
            + path("moved/bin/tdwsimulator") + " record 00008130-00FACADE0010001C -o -'");
        EXPECT_THAT(output, StartsWith("00008130-00FACADE0010001C\n"));
        EXPECT_THAT(output, HasSubstr("00008110-00FACADE0012002E\n/"));
        EXPECT_THAT(output, HasSubstr("\n" + fs::canonical(path("moved")).string() + "/"));
        EXPECT_THAT(output, HasSubstr("\nUDID  "));
        EXPECT_THAT(output, HasSubstr("\"recorded\": true"));
    }

private:
    const TemporaryDirectory m_directory;
};

} // namespace

TEST_F(Installation, IsFoundByCMakeAndWorksWhereverItIsMovedTo)
{
    run("cmake -S " TIDEWELL_SOURCE_DIR "/Examples -B " + path("build") + " -G '"
        + TIDEWELL_CMAKE_GENERATOR "' -DCMAKE_PREFIX_PATH=" + path("moved")
        + " -DCMAKE_CXX_COMPILER=" TIDEWELL_CXX_COMPILER " -DCMAKE_CXX_FLAGS='" TIDEWELL_CXX_FLAGS
          "' && cmake --build "
        + path("build"));
    expectToWork(path("build/device-list"));

    // The library is trusted like the servers.
    run("chmod o+w " + path("moved/" TIDEWELL_LIBDIR));
    EXPECT_THAT(run(path("moved/bin/tdwsimulator") + " run -- " + path("build/device-list")
                    + " 2>&1 || true"),
        HasSubstr("mend it with: chmod o-w \"" + path("moved/" TIDEWELL_LIBDIR) + '"'));
}

TEST_F(Installation, IsFoundByPkgConfig)
{
    for (const std::string example : { "device-list", "device-events" })
        run(TIDEWELL_CXX_COMPILER " " TIDEWELL_CXX_FLAGS " " TIDEWELL_SOURCE_DIR "/Examples/"
            + example + ".cpp $(pkg-config --cflags --libs tidewell) -o " + path(example));
    expectToWork(path("device-list"));
}

TEST_F(Installation, IsRemovedWithNothingLeft)
{
    const std::string prefix = path("again");
    run("mkdir -p " + prefix + "/bin && touch " + prefix + "/own");
    const std::string install = "cmake --install . --prefix " + prefix;
    runWithRecord(install + "; " + install + "; cmake --build . --target uninstall");
    EXPECT_EQ(run("cd " + prefix + " && find . | sort"), ".\n./bin\n./own\n");
}

TEST_F(Installation, HasWhatItsHeadersDeclareAndNothingElse)
{
    EXPECT_EQ(
        run(TIDEWELL_SOURCE_DIR "/Tests/Packaging/compare-exports " + path("moved/" TIDEWELL_LIBDIR)
            + "/libtidewell.so " + path("moved/include/tidewell")),
        "");
    // Each of them can be included, and together they are C++20 without a warning.
    run("cd " + path("moved/include")
        + "; for header in tidewell/*.h; do echo \"#include <$header>\"; done | " TIDEWELL_CXX_COMPILER
          " -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I. -x c++ - "
          "$(pkg-config --cflags libimobiledevice-1.0)");
}
