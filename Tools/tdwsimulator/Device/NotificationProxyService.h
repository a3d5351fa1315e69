#pragma once

#include "Device/SimulatedService.h"
#include "Model/NotificationCenter.h"

#include <memory>
#include <set>
#include <string>

namespace tdw::simulator {

/// The notification proxy: a host names what it wants to hear of, and may post on its own.
class NotificationProxyService final : public SimulatedService {
public:
    explicit NotificationProxyService(const ServiceContext& context);

    ServiceReply handle(const Dictionary& request) override;

private:
    std::set<std::string> m_observed;
    std::shared_ptr<NotificationCenter::Observer> m_observer;
};

} // namespace tdw::simulator
