#include "Doctor/ComputerChecks.h"

#include "Devices/DeviceList.h"
#include "Devices/DeviceSelection.h"
#include "Doctor/DeviceLibraries.h"
#include "Errors/Advice.h"
#include "Errors/CommandLineError.h"
#include "Host/RequestRunner.h"
#include "Host/TDWServerInvocation.h"
#include "Interfaces/TDWServer.h"
#include "Multiplexer/UsbBus.h"
#include "Requests/DeviceRequests.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <optional>

namespace tdw::cli {

namespace {

using namespace std::chrono_literals;

constexpr auto kVersionBound = 2s;
constexpr std::string_view kOldestTried = "1.1.1";
constexpr const char* kInstallAgain
    = "The installation of Tidewell is incomplete; install it again.";

/// "2026-11-23"
std::string dateText(std::chrono::system_clock::time_point time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts {};
    (void)::gmtime_r(&seconds, &parts);
    std::array<char, 32> text {};
    return { text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d", &parts) };
}

/// Where usbmuxd is installed: on the search path, or where Debian has it.
std::optional<std::filesystem::path> daemonProgram()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    const char* variable = std::getenv("PATH");
    std::string directories = (variable ? std::string(variable) + ":" : std::string())
        + "/usr/sbin:/usr/local/sbin:/usr/bin";
    while (!directories.empty()) {
        const std::string directory = directories.substr(0, directories.find(':'));
        directories.erase(0, directory.size() + 1);
        std::filesystem::path program = std::filesystem::path(directory) / "usbmuxd";
        std::error_code error;
        if (!directory.empty() && std::filesystem::is_regular_file(program, error)
            && ::access(program.c_str(), X_OK) == 0)
            return program;
    }
    return std::nullopt;
}

/// What it says of its release, such as "1.1.1".
Result<std::string> daemonVersion(const std::filesystem::path& program)
{
    ServerRunOptions options;
    options.executable = program;
    options.serverName = "usbmuxd";
    options.arguments = { "--version" };
    options.timeout = kVersionBound;
    const auto outcome = TDW_TRY(runServer(std::move(options)));
    if (outcome.timedOut)
        return Error::posix(ETIMEDOUT, "Waiting for its version");
    constexpr std::string_view kName = "usbmuxd ";
    std::string_view text(
        reinterpret_cast<const char*>(outcome.output.data()), outcome.output.size());
    if (outcome.termination != Termination {} || !text.starts_with(kName))
        return Error::posix(EINVAL, "Its version is no version");
    text.remove_prefix(kName.size());
    return std::string(text.substr(0, text.find_first_of(" -\n")));
}

/// "socket of the user 0 with the mode 0600"
std::string rightsOf(const std::string& path)
{
    struct stat status { };
    std::array<char, 64> text {};
    if (::stat(path.c_str(), &status) == 0)
        (void)std::snprintf(text.data(), text.size(), " (owner %u, mode %04o)",
            static_cast<unsigned>(status.st_uid), static_cast<unsigned>(status.st_mode & 07777));
    return text.data();
}

std::string devicesText(std::size_t count)
{
    return count == 1 ? "1 device" : std::to_string(count) + " devices";
}

/// Why the bus cannot be read; an empty text where it can.
std::string busProblem(const std::filesystem::path& directory)
{
    std::error_code error;
    const std::filesystem::directory_iterator entries(directory, error);
    return error ? error.message() : std::string();
}

} // namespace

Finding checkClock(std::chrono::system_clock::time_point now)
{
    // Before any release of this program, and after what a certificate of today can last.
    constexpr auto kEarliest = std::chrono::sys_days(std::chrono::year(2025) / 1 / 1);
    constexpr auto kLatest = std::chrono::sys_days(std::chrono::year(2045) / 1 / 1);
    Finding finding { .check = "clock", .text = dateText(now) };
    if (now >= kEarliest && now < kLatest)
        return finding;
    finding.health = Health::Failure;
    finding.text = "This computer's clock says " + dateText(now)
        + ", and devices refuse certificates of such a time.";
    finding.remedy = "sudo timedatectl set-ntp true";
    return finding;
}

Finding checkLibraries()
{
    Finding finding { .check = "libraries" };
    const auto libraries = loadedDeviceLibraries();
    if (!libraries) {
        finding.health = Health::Failure;
        finding.text = libraries.error().failureReason();
        finding.remedy = kInstallAgain;
        finding.error = libraries.error();
        return finding;
    }
    finding.text = libraries->text;
    finding.details.set("Generation", std::int64_t { libraries->generation });
    for (const std::string& fault : libraries->knownFaults)
        finding.text += "; " + fault;
    return finding;
}

Finding checkServers()
{
    Finding finding { .check = "servers", .text = "can be started" };
    std::optional<Error> error;
    for (const TDWServer server : { kTidewellServerList, kTidewellServerInfo }) {
        if (TDWValidateServerExecutable(std::string(server), Bundle::mainBundle(), error))
            continue;
        finding.health = Health::Failure;
        finding.text
            = "\"" + std::string(server) + "\" cannot be started: " + error->failureReason();
        finding.remedy = adviceFor(*error);
        if (finding.remedy.empty())
            finding.remedy = kInstallAgain;
        finding.error = error;
        break;
    }
    return finding;
}

Finding checkDaemon(bool isNeeded)
{
    Finding finding { .check = "daemon" };
    const auto program = daemonProgram();
    if (!program) {
        finding.health = isNeeded ? Health::Failure : Health::Ok;
        finding.text = isNeeded ? "is not installed"
                                : "is not installed, and not needed: USBMUXD_SOCKET_ADDRESS names "
                                  "another multiplexer";
        finding.remedy = isNeeded ? "sudo apt install usbmuxd" : "";
        return finding;
    }
    const auto version = daemonVersion(*program);
    if (!version) {
        finding.health = Health::Warning;
        finding.text = "\"" + program->string()
            + "\" does not tell its version: " + version.error().failureReason();
        finding.remedy = "sudo apt install --reinstall usbmuxd";
        finding.error = version.error();
        return finding;
    }
    finding.text = *version + " (" + program->string() + ")";
    finding.details.set("Version", *version);
    if (*version < kOldestTried) {
        finding.health = Health::Warning;
        finding.text += " is older than any that Tidewell was tried with";
        finding.remedy = "Install a newer one: sudo apt install usbmuxd";
    } else if (const auto libraries = loadedDeviceLibraries();
               libraries && libraries->generation > 12) {
        finding.text += "; it does not tell of new pairings, so Tidewell looks for them";
    }
    return finding;
}

MultiplexerCheck checkMultiplexer(EventLoop& loop, MultiplexerClient& multiplexer)
{
    MultiplexerCheck check { .finding = { .check = "multiplexer" }, .devices = {} };
    Finding& finding = check.finding;
    const auto report = waitFor<MultiplexerReport>(
        loop, [&](auto handler) { multiplexer.probe(std::move(handler)); });
    const auto listed = report.state == MultiplexerState::Working
        ? waitFor<Result<std::vector<std::string>>>(
            loop, [&](auto handler) { multiplexer.listDevices(std::move(handler)); })
        : multiplexerError(report, std::nullopt);
    finding.details.set("Address", report.address.description());
    if (listed) {
        check.isWorking = true;
        for (const std::string& udid : *listed) {
            if (std::ranges::find(check.devices, udid) == check.devices.end())
                check.devices.push_back(udid);
        }
        finding.text = "\"" + report.address.description() + "\" answers and lists "
            + devicesText(check.devices.size());
        return check;
    }
    const auto surroundings = multiplexerSurroundings();
    const bool isResting = !report.address.isFromEnvironment && surroundings.isInstalled
        && !surroundings.isDeviceOnCable
        && (report.state == MultiplexerState::Absent
            || report.state == MultiplexerState::NotListening);
    finding.health = isResting ? Health::Warning : Health::Failure;
    finding.text = listed.error().failureReason();
    if (report.state == MultiplexerState::NotPermitted)
        finding.text += rightsOf(report.address.path);
    finding.remedy = adviceFor(listed.error());
    finding.error = listed.error();
    return check;
}

Finding checkBus(const std::filesystem::path& sysfs, const MultiplexerCheck& multiplexer,
    bool isMultiplexerFromEnvironment)
{
    Finding finding { .check = "bus" };
    if (!isOwnUsbBus(isMultiplexerFromEnvironment)) {
        finding.text = "not looked at: USBMUXD_SOCKET_ADDRESS names another multiplexer";
        return finding;
    }
    const auto directory = sysfs / "bus/usb/devices";
    if (const std::string problem = busProblem(directory); !problem.empty()) {
        finding.health = Health::Warning;
        finding.text = "\"" + directory.string() + "\" cannot be read: " + problem;
        finding.remedy
            = "Run this where /sys is there: without it, devices that usbmuxd does not show are not found.";
        return finding;
    }
    const auto onBus = devicesOnUsbBus(sysfs);
    const auto isListed = [&](const std::string& udid) {
        return std::ranges::any_of(multiplexer.devices, [&](const std::string& listed) {
            return comparableUdid(listed) == comparableUdid(udid);
        });
    };
    const auto missing = missingFromList(onBus, isListed);
    finding.details.set("OnBus", Array(onBus.begin(), onBus.end()));
    finding.details.set("Missing", Array(missing.begin(), missing.end()));
    finding.text = devicesText(onBus.size()) + " on the cable";
    // What a multiplexer that does not answer lacks is told there.
    if (missing.empty() || !multiplexer.isWorking)
        return finding;
    const Error error = notShownByMultiplexer(missing.front());
    finding.health = Health::Failure;
    finding.text = error.failureReason();
    if (missing.size() > 1)
        finding.text += " (and " + std::to_string(missing.size() - 1) + " more)";
    finding.remedy = adviceFor(error);
    return finding;
}

} // namespace tdw::cli
