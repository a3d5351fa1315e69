#pragma once

#include "Device/SimulatedService.h"

namespace tdw::simulator {

/// The companion proxy: describes the companions behind a phone. As on real phones one connection
/// serves one command.
class CompanionProxyService final : public SimulatedService {
public:
    explicit CompanionProxyService(const ServiceContext& context)
        : m_device(*context.attachment.device)
    {
    }

    ServiceReply handle(const Dictionary& request) override;
    Dictionary refusal(const Dictionary& request, std::string_view error) const override;

private:
    Dictionary registry() const;
    Dictionary registryValue(const Dictionary& request) const;

    const SimulatedDevice& m_device;
};

} // namespace tdw::simulator
