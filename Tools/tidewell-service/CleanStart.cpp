#include "CleanStart.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace tdw::service {

namespace {

/// The manual page has the same list.
constexpr const char* kPassed[] = {
    "HOME",
    "LOGNAME",
    "USER",
    "TZ",
    "XDG_RUNTIME_DIR",
    "USBMUXD_SOCKET_ADDRESS",
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    "ASAN_OPTIONS",
    "LSAN_OPTIONS",
    "TSAN_OPTIONS",
    "UBSAN_OPTIONS",
#endif
};
constexpr const char* kSearchPath = "/usr/local/bin:/usr/bin:/bin";

constexpr rlim_t kUsualStack = rlim_t { 8 } << 20;
constexpr rlim_t kUsualDescriptors = 1024;

/// As much as there may be, or `usual` where more does harm.
void resetLimit(__rlimit_resource resource, rlim_t usual = RLIM_INFINITY)
{
    rlimit limit {};
    if (::getrlimit(resource, &limit) != 0)
        return;
    limit.rlim_cur = std::min(usual, limit.rlim_max);
    (void)::setrlimit(resource, &limit);
}

} // namespace

std::vector<std::pair<std::string, std::string>> cleanEnvironment()
{
    std::vector<std::pair<std::string, std::string>> environment { { "PATH", kSearchPath } };
    for (const char* name : kPassed) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread yet
        if (const char* value = std::getenv(name))
            environment.emplace_back(name, value);
    }
    return environment;
}

void resetInheritedLimits()
{
    for (const auto resource :
        { RLIMIT_CPU, RLIMIT_FSIZE, RLIMIT_DATA, RLIMIT_AS, RLIMIT_RSS, RLIMIT_NPROC })
        resetLimit(resource);
    resetLimit(RLIMIT_STACK, kUsualStack);
    resetLimit(RLIMIT_NOFILE, kUsualDescriptors);
    resetLimit(RLIMIT_CORE, 0);

    const sched_param usual {};
    (void)::sched_setscheduler(0, SCHED_OTHER, &usual);
    (void)::setpriority(PRIO_PROCESS, 0, 0);
    cpu_set_t all;
    std::fill_n(reinterpret_cast<unsigned char*>(&all), sizeof all, 0xFF);
    (void)::sched_setaffinity(0, sizeof all, &all);
    // IOPRIO_WHO_PROCESS, IOPRIO_CLASS_NONE: as the niceness says.
    (void)::syscall(SYS_ioprio_set, 1, 0, 0);
    (void)::umask(S_IRWXG | S_IRWXO);
}

} // namespace tdw::service
