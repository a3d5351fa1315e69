#pragma once

#include "Device/Service.h"

#include <set>
#include <string>

namespace tdw::simulator {

/// The notification proxy: a host names what it wants to hear of, and may post on its own.
class NotificationProxyService final : public Service {
public:
    explicit NotificationProxyService(const ServiceContext&) { }

    ServiceReply handle(const Dictionary& request) override;

private:
    std::set<std::string> m_observed;
};

} // namespace tdw::simulator
