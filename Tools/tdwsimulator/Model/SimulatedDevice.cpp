#include "Model/SimulatedDevice.h"

#include <algorithm>
#include <utility>

namespace tdw::simulator {

SimulatedDevice::SimulatedDevice(
    DeviceDescription description, std::shared_ptr<const SimulatorKeys> keys)
    : m_description(std::move(description))
    , m_values(std::move(m_description.domains), m_description.publicKeys)
    , m_trust(m_description.trust, m_description.acceptAfter)
    , m_pairings(keys)
{
    // Recorded values hold the key of the device they came from; hosts need the one in use here.
    m_values.set(kGlobalDomain, "DevicePublicKey", rsaPublicKeyPem(*keys->device));
}

void SimulatedDevice::answerTrust(TrustDialog::Answer answer)
{
    m_trust.answer(answer);
    if (answer == TrustDialog::Answer::Accept)
        m_notifications.post("com.apple.mobile.lockdown.request_pair");
}

void SimulatedDevice::setTrust(Trust trust)
{
    m_trust.setTrust(trust);
    if (trust == Trust::ForgotHost)
        m_pairings.clear();
}

const CompanionDescription* SimulatedDevice::companion(std::string_view udid) const
{
    const auto found
        = std::find_if(m_description.companions.begin(), m_description.companions.end(),
            [&](const CompanionDescription& companion) { return companion.udid == udid; });
    return found == m_description.companions.end() ? nullptr : &*found;
}

CompanionDescription* SimulatedDevice::companion(std::string_view udid)
{
    return const_cast<CompanionDescription*>(std::as_const(*this).companion(udid));
}

Data SimulatedDevice::wallpaper(WallpaperPlace place, double widthPixels) const
{
    if (m_description.wallpaper)
        return *m_description.wallpaper;
    return drawWallpaper(
        { udid(), text("DeviceClass"), m_description.wallpaperSize }, place, widthPixels);
}

std::string SimulatedDevice::text(std::string_view key) const
{
    const Value* value = m_values.value(kGlobalDomain, key);
    return value && value->asString() ? *value->asString() : std::string();
}

std::uint64_t SimulatedDevice::productId() const
{
    const std::string deviceClass = text("DeviceClass");
    if (deviceClass == "iPad")
        return 0x12ab;
    if (deviceClass == "iPod")
        return 0x12aa;
    return 0x12a8;
}

} // namespace tdw::simulator
