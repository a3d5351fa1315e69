#include "Device/NotificationProxyService.h"

#include "Model/Lookup.h"

namespace tdw::simulator {

ServiceReply NotificationProxyService::handle(const Dictionary& request)
{
    const std::string name = requestName(request);
    const std::string* notification = stringIn(request, "Name");
    if (name == "ObserveNotification" && notification != nullptr) {
        m_observed.insert(*notification);
        return {};
    }
    if (name == "PostNotification" && notification != nullptr) {
        // What a host posts comes back to those who observe it, itself included.
        if (!m_observed.contains(*notification))
            return {};
        return ServiceReply { .messages
            = { Dictionary { { "Command", "RelayNotification" }, { "Name", *notification } } } };
    }
    if (name == "Shutdown") {
        return ServiceReply { .messages = { Dictionary { { "Command", "ProxyDeath" } } },
            .next = ServiceReply::Next::Close };
    }
    return ServiceReply { .next = ServiceReply::Next::Close };
}

} // namespace tdw::simulator
