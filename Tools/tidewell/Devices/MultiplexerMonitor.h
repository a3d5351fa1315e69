#pragma once

#include "Platform/Values/Error.h"
#include "Requests/DeviceRequests.h"

#include <functional>
#include <string>
#include <vector>

namespace tdw::cli {

/// Looks every two seconds for what keeps devices from being seen: a multiplexer that cannot be
/// asked, a device on the cable that it does not show. Asks no device.
///
/// Belongs to the thread of the requests' loop. No handler runs after its end.
class MultiplexerMonitor {
public:
    /// @param handler runs on the loop with all problems that there are, each time they change
    using Handler = std::function<void(const std::vector<Error>& problems)>;

    MultiplexerMonitor(DeviceRequests& requests, Handler handler);

private:
    void look();
    void listed(const Result<std::vector<std::string>>& udids);
    /// A device that has just come is not shown for a moment.
    std::vector<Error> missingTwice(const std::vector<std::string>& listedUdids);

    DeviceRequests& m_requests;
    MultiplexerClient m_client;
    Handler m_handler;
    std::vector<std::string> m_missing;
    std::vector<Error> m_problems;
    EventLoop::Source m_timer;
};

} // namespace tdw::cli
