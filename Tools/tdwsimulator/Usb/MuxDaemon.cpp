#include "Usb/MuxDaemon.h"

#include "Model/Json.h"
#include "Model/SimulatorError.h"
#include "Usb/DaemonListener.h"
#include "Usb/UsbWire.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace tdw::simulator {

namespace {

/// The directory of the stand-in, which has libusb's own name.
Result<std::filesystem::path> standInDirectory()
{
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto directory = executable.parent_path().parent_path() / TDWSIMULATOR_USB_LIBRARY_DIR;
    if (!std::filesystem::exists(directory / "libusb-1.0.so.0", error)) {
        return simulatorError("the stand-in for libusb is missing: there is no "
            + directory.string() + "/libusb-1.0.so.0 (built where libusb's header is installed)");
    }
    return directory;
}

} // namespace

MuxDaemon::MuxDaemon(asio::io_context& context, Simulation& simulation,
    std::filesystem::path directory, std::filesystem::path program)
    : m_context(context)
    , m_simulation(simulation)
    , m_directory(std::move(directory))
    , m_program(std::move(program))
    , m_end(context)
{
    m_simulation.observe([this](const SimulationEvent& event) {
        if (event.kind != SimulationEvent::Kind::Paired)
            (void)follow();
    });
}

MuxDaemon::~MuxDaemon()
{
    if (m_process)
        m_process->sendSignal(SIGKILL);
}

std::filesystem::path MuxDaemon::socket() const
{
    return m_directory / "run" / "usbmuxd";
}

bool MuxDaemon::hasDevice() const
{
    return std::ranges::any_of(m_simulation.attachments(),
        [](const Attachment& attachment) { return attachment.type == ConnectionType::Usb; });
}

Result<void> MuxDaemon::follow()
{
    const bool isAbsent = m_simulation.faults().contains(FaultKind::Absent, kMuxPlace);
    if (isAbsent && m_process)
        stop(SIGTERM);
    else if (!hasDevice() && m_process)
        askToEnd();
    else if (hasDevice() && !isAbsent && !m_process)
        TDW_TRY(start());
    return {};
}

/// The daemon refuses as long as it has not noticed that its last device is gone.
void MuxDaemon::askToEnd()
{
    m_process->sendSignal(SIGUSR1);
    if (m_isAsking)
        return;
    m_isAsking = true;
    m_simulation.later(std::chrono::milliseconds(100), [this] {
        m_isAsking = false;
        (void)follow();
    });
}

Result<void> MuxDaemon::start()
{
    std::error_code error;
    std::filesystem::create_directories(m_directory / "run", error);
    std::filesystem::create_directories(m_directory / "lib" / "lockdown", error);
    if (error)
        return Error::posix(error.value(), "Cannot create directories in " + m_directory.string());
    LaunchOptions launch;
    launch.executable = "/proc/self/exe";
    launch.programName = "tdwsimulator";
    launch.arguments = { "become-daemon", m_directory.string(), m_program.string() };
    launch.environment = { { kUsbSocketVariable, (m_directory / "usb").string() },
        { "LD_LIBRARY_PATH", TDW_TRY(standInDirectory()).string() },
        // What the daemon calls about its own devices goes to itself.
        { "USBMUXD_SOCKET_ADDRESS", "UNIX:/var/run/usbmuxd" } };
    FileHandle log(::open(
        (m_directory / "usbmuxd.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    launch.standardOutput = launch.standardError = log.descriptor();
    m_process = TDW_TRY(Process::launch(launch));
    watchEnd();
    return {};
}

void MuxDaemon::stop(int signal)
{
    m_process->sendSignal(signal);
    if (!m_process->waitUntilExit(std::chrono::seconds(5)))
        m_process->sendSignal(SIGKILL);
    (void)m_process->waitUntilExit();
    m_process.reset();
    std::error_code error;
    m_end.close(error);
}

void MuxDaemon::watchEnd()
{
    const int copy = ::fcntl(m_process->descriptor(), F_DUPFD_CLOEXEC, 0);
    std::error_code error;
    m_end.assign(copy, error);
    m_end.async_wait(asio::posix::stream_descriptor::wait_read, [this](std::error_code failure) {
        if (failure || !m_process)
            return;
        const Termination end = m_process->waitUntilExit();
        const Dictionary message { { "Status", end.status }, { "BySignal", end.bySignal } };
        m_process.reset();
        std::error_code ignored;
        m_end.close(ignored);
        m_simulation.log().add(FaultSite { kDaemonPlace, "", "Ended", &message });
        // A device may have come while the daemon was ending.
        if (end == Termination {})
            (void)follow();
    });
}

std::string MuxDaemon::messages() const
{
    const auto text = readTextFile(m_directory / "usbmuxd.log");
    return text ? *text : std::string();
}

void MuxDaemon::listen()
{
    const Dictionary message { { "ProcessID", m_process ? m_process->identifier() : 0 } };
    m_simulation.log().add(FaultSite { kDaemonPlace, "", "Started", &message });
    DaemonListener::start(m_context, m_simulation, socket());
}

} // namespace tdw::simulator
