#include "Server/OutputReader.h"

#include <sys/epoll.h>

#include <cerrno>
#include <string>

namespace tdw {

Result<OutputReader> OutputReader::watch(
    int descriptor, const Queue& queue, std::function<void()> isGone)
{
    const std::string context
        = "Cannot watch the reader of descriptor " + std::to_string(descriptor);
    FileHandle epoll(::epoll_create1(EPOLL_CLOEXEC));
    if (!epoll.isOpen())
        return Error::posix(errno, context);
    // Without any event asked for, only errors and hang-ups are reported: what somebody sends into
    // a socket, or types into a terminal, is none of our business.
    epoll_event nothing {};
    if (::epoll_ctl(epoll.descriptor(), EPOLL_CTL_ADD, descriptor, &nothing) != 0) {
        if (errno == EPERM)
            return OutputReader(FileHandle(), std::nullopt);
        return Error::posix(errno, context);
    }
    auto source
        = TDW_TRY(ReadSource::create(epoll.descriptor(), queue, { .event = std::move(isGone) }));
    source.resume();
    return OutputReader(std::move(epoll), std::move(source));
}

} // namespace tdw
