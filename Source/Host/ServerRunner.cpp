#include "Host/ServerRunner.h"

#include "Host/RunningServer.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <mutex>
#include <utility>
#include <vector>

namespace tdw {

class ServerRunner::Core {
public:
    explicit Core(FileHandle wake)
        : m_wake(std::move(wake))
    {
    }

    /// @return whether nobody runs the servers at the moment
    bool add(ServerRunOptions options, Completion completion)
    {
        const std::lock_guard lock(m_mutex);
        m_incoming.push_back({ std::move(options), std::move(completion) });
        wake();
        return !std::exchange(m_isRunning, true);
    }

    void killAll()
    {
        const std::lock_guard lock(m_mutex);
        m_killsAll = true;
        wake();
    }

    /// Runs what there is, until nothing is left.
    void run()
    {
        while (takeIncoming()) {
            auto entries = interests();
            if (poll(entries.data(), entries.size(), pollTimeoutUntil(earliestDeadline())) <= 0)
                std::ranges::for_each(entries, [](pollfd& entry) { entry.revents = 0; });
            advance(entries);
        }
    }

private:
    struct Request {
        ServerRunOptions options;
        Completion completion;
    };

    struct Run {
        RunningServer server;
        Completion completion;
    };

    void wake() { (void)::eventfd_write(m_wake.descriptor(), 1); }

    /// Starts what was added; says whether anything runs.
    bool takeIncoming()
    {
        eventfd_t ignored = 0;
        (void)::eventfd_read(m_wake.descriptor(), &ignored);
        std::list<Request> requests;
        bool killsAll = false;
        {
            const std::lock_guard lock(m_mutex);
            requests.swap(m_incoming);
            killsAll = m_killsAll;
            m_isRunning = !requests.empty() || !m_runs.empty();
            if (!m_isRunning)
                return false;
        }
        for (Request& request : requests) {
            auto server = RunningServer::start(std::move(request.options));
            if (server)
                m_runs.push_back({ *std::move(server), std::move(request.completion) });
            else
                request.completion(server.error());
        }
        if (killsAll)
            std::ranges::for_each(m_runs, [](Run& run) { run.server.kill(); });
        return true;
    }

    std::vector<pollfd> interests() const
    {
        std::vector<pollfd> entries { pollfd { m_wake.descriptor(), POLLIN, 0 } };
        for (const Run& run : m_runs) {
            const auto more = run.server.interests();
            entries.insert(entries.end(), more.begin(), more.end());
        }
        return entries;
    }

    RunningServer::Clock::time_point earliestDeadline() const
    {
        auto earliest = RunningServer::kNever;
        for (const Run& run : m_runs)
            earliest = std::min(earliest, run.server.deadline());
        return earliest;
    }

    void advance(const std::vector<pollfd>& entries)
    {
        auto entry = entries.begin() + 1;
        for (auto run = m_runs.begin(); run != m_runs.end();) {
            RunningServer::Interests interests {};
            std::copy_n(entry, interests.size(), interests.begin());
            entry += static_cast<std::ptrdiff_t>(interests.size());
            if (run->server.advance(interests)) {
                run->completion(run->server.takeOutcome());
                run = m_runs.erase(run);
            } else {
                ++run;
            }
        }
    }

    const FileHandle m_wake;
    std::list<Run> m_runs; // belongs to the thread that is in `run`

    std::mutex m_mutex;
    // Everything below belongs to the mutex.
    std::list<Request> m_incoming;
    bool m_isRunning = false;
    bool m_killsAll = false;
};

Result<ServerRunner> ServerRunner::create()
{
    FileHandle wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake.isOpen())
        return Error::posix(errno, "Cannot create an event descriptor");
    return ServerRunner(std::make_shared<Core>(std::move(wake)));
}

ServerRunner::ServerRunner(std::shared_ptr<Core> core)
    : m_core(std::move(core))
    , m_queue(Queue::serial("TDWServerRunner"))
{
}

ServerRunner::~ServerRunner()
{
    // The queue, which goes next, waits for what is left to be done on it.
    if (m_core)
        m_core->killAll();
}

void ServerRunner::start(ServerRunOptions options, Completion completion)
{
    if (m_core->add(std::move(options), std::move(completion)))
        m_queue.async([core = m_core] { core->run(); });
}

} // namespace tdw
