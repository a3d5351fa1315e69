#include "Platform/System/Process.h"

#include "Platform/System/DescriptorLimit.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <string_view>

// glibc 2.36 declares these functions without C linkage.
extern "C" {
#include <sys/pidfd.h>
}

namespace tdw {

namespace {

using Clock = std::chrono::steady_clock;

/// The two option objects of `posix_spawn` and the first error met while filling them.
class SpawnOptions {
public:
    SpawnOptions()
    {
        note(posix_spawn_file_actions_init(&m_actions));
        note(posix_spawnattr_init(&m_attributes));
    }
    SpawnOptions(const SpawnOptions&) = delete;
    SpawnOptions& operator=(const SpawnOptions&) = delete;
    ~SpawnOptions()
    {
        (void)posix_spawn_file_actions_destroy(&m_actions);
        (void)posix_spawnattr_destroy(&m_attributes);
    }

    /// Makes `source` the child's descriptor `target`, where there is one.
    void setStream(std::optional<int> source, int target)
    {
        if (!source)
            return;
        int descriptor = *source;
        if (descriptor >= 0 && descriptor <= STDERR_FILENO) {
            // A source among the targets could be overwritten before its turn comes, or be its own
            // target and stay close-on-exec. A copy above the targets can be neither.
            descriptor = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            if (descriptor < 0)
                return note(errno);
            m_copies.emplace_back(descriptor);
        }
        note(posix_spawn_file_actions_adddup2(&m_actions, descriptor, target));
    }

    void closeOtherDescriptors()
    {
        note(posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1));
    }

    void setSignalsAndGroup(bool ownProcessGroup)
    {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        note(posix_spawnattr_setsigmask(&m_attributes, &none));
        note(posix_spawnattr_setsigdefault(&m_attributes, &all));
        int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (ownProcessGroup) {
            flags |= POSIX_SPAWN_SETPGROUP;
            note(posix_spawnattr_setpgroup(&m_attributes, 0));
        }
        note(posix_spawnattr_setflags(&m_attributes, static_cast<short>(flags)));
    }

    int error() const { return m_error; }
    const posix_spawn_file_actions_t* actions() const { return &m_actions; }
    const posix_spawnattr_t* attributes() const { return &m_attributes; }

private:
    void note(int error)
    {
        if (m_error == 0)
            m_error = error;
    }

    posix_spawn_file_actions_t m_actions {};
    posix_spawnattr_t m_attributes {};
    std::vector<FileHandle> m_copies;
    int m_error = 0;
};

bool hasNul(std::string_view text)
{
    return text.find('\0') != std::string_view::npos;
}

/// A NUL would silently cut the text in the child, and what is checked here would not be what
/// runs there.
bool hasNul(const LaunchOptions& options)
{
    return hasNul(options.executable) || hasNul(options.programName)
        || std::ranges::any_of(
            options.arguments, [](const std::string& argument) { return hasNul(argument); })
        || std::ranges::any_of(options.environment,
            [](const auto& variable) { return hasNul(variable.first) || hasNul(variable.second); });
}

std::vector<std::string> childArguments(const LaunchOptions& options)
{
    std::vector<std::string> arguments;
    arguments.reserve(options.arguments.size() + 1);
    arguments.push_back(options.programName.empty() ? options.executable : options.programName);
    arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
    return arguments;
}

/// The given variables, on top of this process's environment or alone.
std::vector<std::string> childEnvironment(const LaunchOptions& options)
{
    std::vector<std::string> environment;
    char** const own = options.hasOnlyThatEnvironment ? nullptr : environ;
    for (char** entry = own; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const std::string_view name = text.substr(0, text.find('='));
        const bool isReplaced = std::ranges::any_of(
            options.environment, [name](const auto& variable) { return variable.first == name; });
        if (!isReplaced)
            environment.emplace_back(text);
    }
    for (const auto& [name, value] : options.environment)
        environment.emplace_back(name).append("=").append(value);
    return environment;
}

/// The null-terminated array of pointers that exec takes; it points into `strings`.
std::vector<char*> pointers(std::vector<std::string>& strings)
{
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
    for (std::string& text : strings)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

/// Whether `descriptor` became readable before `deadline`; none waits without a bound.
bool waitUntilReadable(int descriptor, std::optional<Clock::time_point> deadline)
{
    while (true) {
        timespec remaining {};
        if (deadline) {
            const auto left = std::max<Clock::duration>(*deadline - Clock::now(), {});
            const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
            remaining.tv_sec = static_cast<time_t>(seconds.count());
            remaining.tv_nsec = static_cast<long>((left - seconds).count());
        }
        pollfd entry { descriptor, POLLIN, 0 };
        const int count = ::ppoll(&entry, 1, deadline ? &remaining : nullptr, nullptr);
        if (count > 0)
            return true;
        if (count == 0 && deadline && Clock::now() >= *deadline)
            return false;
        assert(count >= 0 || errno == EINTR || errno == ENOMEM);
    }
}

/// What is known of a child whose status the application took. Ending is certain, success is not.
constexpr Termination kLost { .status = -1, .bySignal = false, .isKnown = false };

/// Whether a child of this process, running or ended, still has its identifier.
bool isUnreaped(idtype_t type, int identifier)
{
    siginfo_t ignored {};
    return ::waitid(type, static_cast<id_t>(identifier), &ignored, WEXITED | WNOHANG | WNOWAIT)
        == 0;
}

/// Signals a child by its descriptor, which means this child alone even after its end.
void signalChild(pid_t identifier, int descriptor, bool ownsGroup, int signalNumber)
{
    // PIDFD_SIGNAL_PROCESS_GROUP of Linux 6.9; older kernels refuse it.
    constexpr unsigned kWholeGroup = 1U << 2U;
    const unsigned flags = ownsGroup ? kWholeGroup : 0;
    if (::pidfd_send_signal(descriptor, signalNumber, nullptr, flags) == 0 || !ownsGroup
        || errno != EINVAL)
        return;
    // Only a number names the group there. It is this one's as long as its leader is not reaped.
    if (isUnreaped(P_PIDFD, descriptor))
        (void)::kill(-identifier, signalNumber);
}

/// Ends what is left of an ended child's group and takes the child's status from the system.
Termination reap(pid_t identifier, int descriptor, bool ownsGroup)
{
    if (ownsGroup)
        signalChild(identifier, descriptor, ownsGroup, SIGKILL);
    siginfo_t information {};
    int result = 0;
    do
        result = ::waitid(P_PIDFD, static_cast<id_t>(descriptor), &information, WEXITED);
    while (result < 0 && errno == EINTR);
    if (result < 0)
        return kLost;
    return { .status = information.si_status, .bySignal = information.si_code != CLD_EXITED };
}

/// What one waits for to see a child's end: readable from then on.
struct ChildDescriptor {
    FileHandle handle;
    /// The child has ended already, and its identifier may be another process's.
    bool isOfEndedChild = false;
};

Result<ChildDescriptor> descriptorOf(pid_t identifier, bool ownsGroup, const std::string& context)
{
    FileHandle child(::pidfd_open(identifier, 0));
    const int error = errno;
    if (child.isOpen() && isUnreaped(P_PIDFD, child.descriptor()))
        return ChildDescriptor { std::move(child) };
    if (child.isOpen() || error == ESRCH) {
        FileHandle readable(::eventfd(1, EFD_CLOEXEC));
        if (!readable.isOpen())
            return Error::posix(errno, context);
        return ChildDescriptor { std::move(readable), true };
    }
    if (isUnreaped(P_PID, identifier)) {
        (void)::kill(ownsGroup ? -identifier : identifier, SIGKILL);
        while (::waitpid(identifier, nullptr, 0) < 0 && errno == EINTR) { }
    }
    return Error::posix(error, context);
}

} // namespace

Result<Process> Process::launch(const LaunchOptions& options)
{
    const std::string context = "Cannot start " + options.executable;
    if (hasNul(options))
        return Error::posix(EINVAL, context + ": a text for it holds a NUL");

    SpawnOptions spawnOptions;
    spawnOptions.setStream(options.standardInput, STDIN_FILENO);
    spawnOptions.setStream(options.standardOutput, STDOUT_FILENO);
    spawnOptions.setStream(options.standardError, STDERR_FILENO);
    spawnOptions.closeOtherDescriptors();
    spawnOptions.setSignalsAndGroup(options.ownProcessGroup);
    if (spawnOptions.error() != 0)
        return Error::posix(spawnOptions.error(), context);

    std::vector<std::string> arguments = childArguments(options);
    std::vector<std::string> environment = childEnvironment(options);
    pid_t identifier = -1;
    const int error = ::posix_spawn(&identifier, options.executable.c_str(), spawnOptions.actions(),
        spawnOptions.attributes(), pointers(arguments).data(), pointers(environment).data());
    if (error != 0)
        return Error::posix(error, context);

    if (const auto limit = descriptorLimitOfChildren())
        (void)::prlimit(identifier, RLIMIT_NOFILE, &*limit, nullptr);
    ChildDescriptor descriptor
        = TDW_TRY(descriptorOf(identifier, options.ownProcessGroup, context));
    Process process(identifier, std::move(descriptor.handle), options.ownProcessGroup);
    if (descriptor.isOfEndedChild)
        process.m_termination = kLost;
    return process;
}

Process::Process(pid_t identifier, FileHandle descriptor, bool ownsGroup)
    : m_identifier(identifier)
    , m_descriptor(std::move(descriptor))
    , m_ownsGroup(ownsGroup)
{
}

Process::Process(Process&& other) noexcept
    : m_identifier(std::exchange(other.m_identifier, -1))
    , m_descriptor(std::move(other.m_descriptor))
    , m_ownsGroup(other.m_ownsGroup)
    , m_termination(other.m_termination)
{
}

Process& Process::operator=(Process&& other) noexcept
{
    // What this object ran before ends with `ended`.
    Process ended(std::move(*this));
    m_identifier = std::exchange(other.m_identifier, -1);
    m_descriptor = std::move(other.m_descriptor);
    m_ownsGroup = other.m_ownsGroup;
    m_termination = other.m_termination;
    return *this;
}

Process::~Process()
{
    if (m_identifier < 0 || m_termination)
        return;
    sendSignal(SIGKILL);
    (void)waitUntilExit();
}

Termination Process::waitUntilExit()
{
    assert(m_identifier >= 0);
    if (!m_termination) {
        (void)waitUntilReadable(m_descriptor.descriptor(), std::nullopt);
        m_termination = reap(m_identifier, m_descriptor.descriptor(), m_ownsGroup);
    }
    return *m_termination;
}

std::optional<Termination> Process::waitUntilExit(std::chrono::milliseconds timeout)
{
    assert(m_identifier >= 0);
    // A bound that the clock cannot express is as good as a year.
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24 * 365);
    if (!m_termination) {
        const auto deadline = Clock::now() + std::min(timeout, kLongest);
        if (!waitUntilReadable(m_descriptor.descriptor(), deadline))
            return std::nullopt;
        m_termination = reap(m_identifier, m_descriptor.descriptor(), m_ownsGroup);
    }
    return m_termination;
}

void Process::sendSignal(int signalNumber)
{
    if (m_identifier < 0 || m_termination)
        return;
    signalChild(m_identifier, m_descriptor.descriptor(), m_ownsGroup, signalNumber);
}

} // namespace tdw
