#include "Server/ReaderHangupWatch.h"

#include <sys/epoll.h>

#include <cerrno>
#include <string>

namespace tdw {

Result<ReaderHangupWatch> ReaderHangupWatch::watch(
    int descriptor, const Queue& queue, std::function<void()> isGone)
{
    const std::string context
        = "Cannot watch the reader of descriptor " + std::to_string(descriptor);
    FileHandle epoll(::epoll_create1(EPOLL_CLOEXEC));
    if (!epoll.isOpen())
        return Error::posix(errno, context);
    // Without any event asked for, only errors and hang-ups are reported, and not what can be read
    // from a socket or a terminal.
    epoll_event nothing {};
    if (::epoll_ctl(epoll.descriptor(), EPOLL_CTL_ADD, descriptor, &nothing) != 0) {
        if (errno == EPERM)
            return ReaderHangupWatch(FileHandle(), std::nullopt);
        return Error::posix(errno, context);
    }
    auto source
        = TDW_TRY(ReadSource::create(epoll.descriptor(), queue, { .event = std::move(isGone) }));
    source.resume();
    return ReaderHangupWatch(std::move(epoll), std::move(source));
}

} // namespace tdw
