#pragma once

#include "Device/SimulatedService.h"

namespace tdw::simulator {

/// The home screen's service, as far as wallpapers and the screen's orientation go. Systems from 16
/// on answer the newer command and drop the connection upon the older one; earlier systems do it
/// the other way round.
class SpringboardService final : public SimulatedService {
public:
    explicit SpringboardService(const ServiceContext& context)
        : m_device(*context.attachment.device)
    {
    }

    ServiceReply handle(const Dictionary& request) override;
    Dictionary refusal(const Dictionary& request, std::string_view error) const override;
    PropertyListFormat format() const override { return PropertyListFormat::Binary; }

private:
    const SimulatedDevice& m_device;
};

} // namespace tdw::simulator
