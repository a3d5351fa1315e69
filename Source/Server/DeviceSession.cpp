#include "Server/DeviceSession.h"

#include "Server/TDWDeviceID_Private.h"
#include "Server/TDWServerImplementation.h"
#include "Support/TDWErrorHelpers.h"

#include <usbmuxd.h>

#include <cstdint>

namespace tdw {

Result<void> DeviceSession::open(const char* udid, enum idevice_options options)
{
    if (const int code = idevice_new_with_options(out(m_device), udid, options))
        return TDWErrorCreate("idevice_new_with_options", code);
    return {};
}

Result<void> DeviceSession::connect(Handshake handshake)
{
    const auto create = handshake == Handshake::Yes ? &lockdownd_client_new_with_handshake
                                                    : &lockdownd_client_new;
    if (const int code = create(m_device.get(), out(m_lockdown), TDWServerName()))
        return TDWErrorCreate("lockdownd_client_new", code);
    return {};
}

void DeviceSession::disconnect()
{
    (void)lockdownd_goodbye(m_lockdown.get());
    m_lockdown.reset();
}

bool DeviceSession::hasPairRecord() const
{
    LibraryText udid;
    if (idevice_get_udid(m_device.get(), out(udid)) != IDEVICE_E_SUCCESS)
        return false;
    LibraryText record;
    std::uint32_t size = 0;
    return usbmuxd_read_pair_record(udid.get(), out(record), &size) == 0 && size > 0;
}

std::optional<Value> DeviceSession::identity() const
{
    return TDWDeviceIDCreate(m_device.get(), m_lockdown.get());
}

Result<companion_proxy_client_t> DeviceSession::startCompanionProxy()
{
    m_service.reset();
    CompanionProxyHandle proxy;
    if (const int code
        = companion_proxy_client_start_service(m_device.get(), out(proxy), TDWServerName()))
        return TDWErrorCreate("companion_proxy_client_start_service", code);
    return keep(std::move(proxy));
}

} // namespace tdw
