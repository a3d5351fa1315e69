// Timers that take their time, for runs under valgrind.
//
// A server under valgrind is some fifty times slower, and what opens many sessions does not end
// before its own clock ends it. Preloaded, this lets every timer run late, as they all wait for one
// descriptor; what the server does remains the same.

#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr long kPatience = 5;
constexpr long kNanosecondsPerSecond = 1'000'000'000;

timespec later(const timespec& duration)
{
    const long nanoseconds = duration.tv_nsec * kPatience;
    return { .tv_sec = duration.tv_sec * kPatience + nanoseconds / kNanosecondsPerSecond,
        .tv_nsec = nanoseconds % kNanosecondsPerSecond };
}

} // namespace

// The declaration in <sys/timerfd.h> promises no exception, and so must this.
extern "C" __attribute__((visibility("default"))) int timerfd_settime(
    int descriptor, int flags, const itimerspec* value, itimerspec* former) noexcept
{
    itimerspec patient = *value;
    // What is due already has an absolute time, long gone.
    if ((flags & TFD_TIMER_ABSTIME) == 0)
        patient.it_value = later(value->it_value);
    return static_cast<int>(syscall(SYS_timerfd_settime, descriptor, flags, &patient, former));
}
