#include "Commands/Commands.h"
#include "Commands/Simulator.h"
#include "Model/SimulatorError.h"
#include "Platform/System/Process.h"

#include <asio/posix/stream_descriptor.hpp>

#include <fcntl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace tdw::simulator {

namespace {

/// A directory that no other user may enter, gone with this object.
class PrivateDirectory {
public:
    static Result<PrivateDirectory> create()
    {
        const char* parent = std::getenv("TMPDIR"); // NOLINT(concurrency-mt-unsafe): one thread
        std::string name
            = std::string(parent && *parent != '\0' ? parent : "/tmp") + "/tdwsimulator-XXXXXX";
        if (!::mkdtemp(name.data()))
            return Error::posix(errno, "Cannot create " + name);
        return PrivateDirectory(name);
    }

    PrivateDirectory(PrivateDirectory&& other) noexcept
        : m_path(std::exchange(other.m_path, {}))
    {
    }
    PrivateDirectory& operator=(PrivateDirectory&&) = delete;
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    ~PrivateDirectory()
    {
        std::error_code error;
        if (!m_path.empty())
            std::filesystem::remove_all(m_path, error);
    }

    const std::filesystem::path& path() const { return m_path; }

private:
    explicit PrivateDirectory(std::filesystem::path path)
        : m_path(std::move(path))
    {
    }

    std::filesystem::path m_path;
};

/// As a shell finds a command.
Result<std::string> executablePath(const std::string& command)
{
    if (command.find('/') != std::string::npos)
        return command;
    const char* variable = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): one thread
    std::string_view rest = variable ? variable : "/usr/bin:/bin";
    while (true) {
        const std::size_t end = rest.find(':');
        const std::filesystem::path candidate
            = std::filesystem::path(rest.substr(0, end)) / command;
        if (::access(candidate.c_str(), X_OK) == 0 && std::filesystem::is_regular_file(candidate))
            return candidate.string();
        if (end == std::string_view::npos)
            return simulatorError("there is no command \"" + command + "\"");
        rest.remove_prefix(end + 1);
    }
}

/// The signals that mean the command rather than the simulator. Blocked, and read one by one
/// with their sender: what a terminal sends has reached the command already.
Result<FileHandle> signalDescriptor()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : { SIGINT, SIGTERM, SIGHUP, SIGQUIT })
        sigaddset(&signals, number);
    if (const int error = ::pthread_sigmask(SIG_BLOCK, &signals, nullptr); error != 0)
        return Error::posix(error, "Cannot block signals");
    FileHandle handle(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!handle.isOpen())
        return Error::posix(errno, "Cannot create a signal descriptor");
    return handle;
}

class CommandRun {
public:
    CommandRun(asio::io_context& context, Process& process, FileHandle signals)
        : m_context(context)
        , m_process(process)
        , m_signals(context, signals.release())
        , m_end(context)
    {
    }

    Result<int> untilExit()
    {
        // The process keeps its own descriptor, so the loop watches a copy of it.
        const int copy = ::fcntl(m_process.descriptor(), F_DUPFD_CLOEXEC, 0);
        if (copy < 0)
            return Error::posix(errno, "Cannot watch the command");
        m_end.assign(copy);
        m_end.async_wait(asio::posix::stream_descriptor::wait_read,
            [this](std::error_code) { m_context.stop(); });
        forwardSignals();
        m_context.run();
        const Termination termination = m_process.waitUntilExit();
        return termination.bySignal ? 128 + termination.status : termination.status;
    }

private:
    void forwardSignals()
    {
        m_signals.async_wait(
            asio::posix::stream_descriptor::wait_read, [this](std::error_code error) {
                if (error)
                    return;
                signalfd_siginfo info {};
                while (::read(m_signals.native_handle(), &info, sizeof info) == sizeof info) {
                    if (info.ssi_code <= 0)
                        m_process.sendSignal(static_cast<int>(info.ssi_signo));
                }
                forwardSignals();
            });
    }

    asio::io_context& m_context;
    Process& m_process;
    asio::posix::stream_descriptor m_signals;
    asio::posix::stream_descriptor m_end;
};

} // namespace

Result<int> runCommand(const ScenarioOptions& options, const std::vector<std::string>& command)
{
    const Scenario scenario = TDW_TRY(loadScenario(options));
    FileHandle signals = TDW_TRY(signalDescriptor());
    const PrivateDirectory directory = TDW_TRY(PrivateDirectory::create());
    const auto runtime = directory.path() / "runtime";
    if (::mkdir(runtime.c_str(), 0700) != 0)
        return Error::posix(errno, "Cannot create " + runtime.string());
    auto simulator = TDW_TRY(Simulator::create(scenario, directory.path(), options.daemon));
    TDW_TRY(simulator->waitUntilAnnounced());

    LaunchOptions launch;
    launch.executable = TDW_TRY(executablePath(command.front()));
    launch.programName = command.front();
    launch.arguments.assign(command.begin() + 1, command.end());
    launch.environment = { { "USBMUXD_SOCKET_ADDRESS", "UNIX:" + simulator->muxSocket().string() },
        { "XDG_RUNTIME_DIR", runtime.string() },
        { "TDWSIMULATOR_CONTROL", simulator->controlSocket().string() } };
    Process process = TDW_TRY(Process::launch(launch));
    return CommandRun(simulator->context(), process, std::move(signals)).untilExit();
}

} // namespace tdw::simulator
