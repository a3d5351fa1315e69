// Waiting for a device's half of a TLS handshake.
//
// libimobiledevice 1.3.0 puts the socket into non-blocking mode for the handshake and, while bytes
// are missing, calls nanosleep for 100 ms before it looks again. A trusted session, whose
// arithmetic takes some ten milliseconds, takes 120 or 220 that way, and a watch with fifteen keys
// needs fifteen of them. This process therefore brings its own nanosleep, which the dynamic linker
// binds the library's calls to: it waits for bytes on the connection, and for the time only at
// most. Releases that wait by themselves never call it.

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace {

/// A server opens a handful of descriptors; the first free number is used, so all are small.
constexpr int kHighestDescriptor = 64;

/// After so many early ends in a row the full time is slept: a connection that is ready but not
/// the one that is waited for, or a device that sends byte by byte, must not keep a processor busy.
/// An honest handshake ends early once for each flight of messages, three times at the most.
constexpr int kEarlyEnds = 16;

bool isConnectedStream(int descriptor)
{
    int type = 0;
    socklen_t size = sizeof type;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) != 0 || type != SOCK_STREAM)
        return false;
    sockaddr_storage peer {};
    size = sizeof peer;
    return getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
}

/// The connection opened last, which is the one that shakes hands: the library opens a connection,
/// secures it and uses it before it opens the next, and closes the auxiliary ones. None: -1.
int newestConnection()
{
    for (int descriptor = kHighestDescriptor; descriptor > 2; --descriptor) {
        if (isConnectedStream(descriptor))
            return descriptor;
    }
    return -1;
}

bool endsEarly(int descriptor, const timespec& duration)
{
    pollfd entry { descriptor, POLLIN, 0 };
    return ppoll(&entry, 1, &duration, nullptr) > 0;
}

} // namespace

// The declaration in <time.h> promises no exception, and so must this.
extern "C" __attribute__((visibility("default"))) int nanosleep(
    const timespec* duration, timespec* remaining)
{
    static std::atomic<int> earlyEnds = 0;
    const int connection = earlyEnds < kEarlyEnds ? newestConnection() : -1;
    if (connection >= 0) {
        earlyEnds = endsEarly(connection, *duration) ? earlyEnds + 1 : 0;
        return 0;
    }
    earlyEnds = 0;
    const int code = clock_nanosleep(CLOCK_MONOTONIC, 0, duration, remaining);
    if (code == 0)
        return 0;
    errno = code;
    return -1;
}
