#include "Host/ServerRun.h"

#include "Host/RunningServer.h"

#include <poll.h>

#include <utility>

namespace tdw {

Result<ServerRunOutcome> runServer(ServerRunOptions options)
{
    RunningServer server = TDW_TRY(RunningServer::start(std::move(options)));
    while (true) {
        auto interests = server.interests();
        // An interruption is like a time-out: nothing can be read, and the wait goes on.
        if (poll(interests.data(), interests.size(), pollTimeoutUntil(server.deadline())) <= 0)
            interests = {};
        if (server.advance(interests))
            return server.takeOutcome();
    }
}

} // namespace tdw
