// A multiplexer with many callers.
//
// usbmuxd listens with a queue of five connections. One more is not made to wait: on a non-blocking
// local socket, which is what libusbmuxd uses, it fails at once with EAGAIN, and libusbmuxd takes
// that for a multiplexer that is not there. Where it hits the reading of the pair record,
// libimobiledevice pairs again, and a phone that trusts this host asks its user once more. This
// process therefore brings its own connect, which the dynamic linker binds the libraries' calls to:
// on local stream sockets it tries again, within a bound. All else goes to the system as it is.

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

/// Half of what a server has for its whole request. A multiplexer empties its queue in
/// milliseconds.
constexpr auto kBound = 5s;

constexpr std::chrono::nanoseconds kShortestPause = 1ms;
constexpr std::chrono::nanoseconds kLongestPause = 20ms;

int connectOnce(int descriptor, const sockaddr* address, socklen_t length)
{
    return static_cast<int>(syscall(SYS_connect, descriptor, address, length));
}

bool isLocalStream(int descriptor, const sockaddr* address)
{
    int type = 0;
    socklen_t size = sizeof type;
    return address && address->sa_family == AF_UNIX
        && getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

/// Not nanosleep, which is this process's own and waits for other things.
void pause(std::chrono::nanoseconds duration)
{
    const timespec time { .tv_sec = 0, .tv_nsec = duration.count() };
    (void)clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

} // namespace

extern "C" __attribute__((visibility("default"))) int connect(
    int descriptor, const sockaddr* address, socklen_t length)
{
    int result = connectOnce(descriptor, address, length);
    if (result == 0 || errno != EAGAIN || !isLocalStream(descriptor, address))
        return result;
    const auto end = Clock::now() + kBound;
    for (auto wait = kShortestPause; Clock::now() < end; wait = std::min(2 * wait, kLongestPause)) {
        pause(wait);
        result = connectOnce(descriptor, address, length);
        if (result == 0 || errno != EAGAIN)
            return result;
    }
    errno = EAGAIN;
    return -1;
}
