#pragma once

#include "SimulatorProcess.h"
#include "Support/Testing.h"

/// Tests before the system's own multiplexer daemon. They need it, the stand-in for libusb, and the
/// right to make a mount namespace; elsewhere they are skipped and say what is missing.
///
/// TIDEWELL_USBMUXD names another executable of the daemon, and TIDEWELL_USBMUXD_RELEASE whose it
/// is (debian12, debian13).
class DaemonTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (!std::filesystem::exists(daemon()))
            GTEST_SKIP() << daemon() << " is not installed";
        start();
        if (!m_simulator->isRunning()) {
            const auto why
                = runCommandBounded({ kSimulator, "run", "--daemon", daemon(), "--", "true" });
            GTEST_SKIP() << why.output;
        }
    }

    static std::string variable(const char* name, const char* otherwise)
    {
        const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): one thread
        return value != nullptr ? value : otherwise;
    }

    static std::string release() { return variable("TIDEWELL_USBMUXD_RELEASE", "debian12"); }
    static std::string daemon() { return variable("TIDEWELL_USBMUXD", "/usr/sbin/usbmuxd"); }

    /// Begins with other devices.
    void start(std::string_view scenario = {})
    {
        m_simulator.reset();
        m_simulator = std::make_unique<SimulatorProcess>(
            scenario, std::vector<std::string> { "--daemon", daemon() });
    }

    ToolRun control(std::vector<std::string> words) const
    {
        return m_simulator->control(std::move(words));
    }

    /// Waits until the daemon has announced something about a device so many times, or something
    /// has been asked at another place.
    void waitFor(const std::string& request, const std::string& device = {}, int count = 1,
        const std::string& place = "daemon") const
    {
        std::vector<std::string> words { "wait", "at=" + place, "request=" + request,
            "count=" + std::to_string(count), "milliseconds=30000" };
        if (!device.empty())
            words.push_back("device=" + device);
        const auto outcome = control(words);
        EXPECT_EQ(outcome.termination.status, 0) << request << ": " << outcome.output;
    }

    static std::string serverPath(const std::string& name)
    {
        return TIDEWELL_BUILD_DIR "/libexec/tidewell/" + name;
    }

    ToolRun server(std::string name, std::vector<std::string> arguments = {}) const
    {
        arguments.insert(arguments.begin(), serverPath(name));
        return m_simulator->run(std::move(arguments));
    }

    std::unique_ptr<SimulatorProcess> m_simulator;
};
