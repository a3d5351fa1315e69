#include "Device/NotificationProxyService.h"

namespace tdw::simulator {

namespace {

Value relayed(const std::string& name)
{
    return Dictionary { { "Command", "RelayNotification" }, { "Name", name } };
}

} // namespace

NotificationProxyService::NotificationProxyService(const ServiceContext& context)
    : m_observer(context.attachment.device->notifications().observe(
        [this, push = context.push](const std::string& name) {
            if (m_observed.contains(name))
                push(relayed(name));
        }))
{
}

ServiceReply NotificationProxyService::handle(const Dictionary& request)
{
    const std::string name = requestName(request);
    const std::string* notification = request.stringAt("Name");
    if (name == "ObserveNotification" && notification) {
        m_observed.insert(*notification);
        return {};
    }
    if (name == "PostNotification" && notification) {
        // What a host posts comes back to every observer, itself included.
        if (!m_observed.contains(*notification))
            return {};
        return ServiceReply { .messages = { relayed(*notification) } };
    }
    if (name == "Shutdown") {
        return ServiceReply { .messages = { Dictionary { { "Command", "ProxyDeath" } } },
            .next = ServiceReply::Next::Close };
    }
    return ServiceReply { .next = ServiceReply::Next::Close };
}

} // namespace tdw::simulator
