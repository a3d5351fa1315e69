#include "Server/DeviceSession.h"

#include "Platform/System/Trace.h"
#include "Server/PairRecord.h"
#include "Server/PropertyListNode.h"
#include "Server/TDWDeviceID_Private.h"
#include "Server/TDWServerImplementation.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TraceSteps.h"

namespace tdw {

Result<void> DeviceSession::open(const char* udid, enum idevice_options options)
{
    m_udid = udid;
    TraceStep step(kLookUpStep, m_udid);
    if (const int code = step.ended(idevice_new_with_options(out(m_device), udid, options)))
        return TDWErrorCreate("idevice_new_with_options", code);
    return {};
}

Result<void> DeviceSession::connect(Handshake handshake)
{
    const auto create = handshake == Handshake::Yes ? &lockdownd_client_new_with_handshake
                                                    : &lockdownd_client_new;
    TraceStep step(handshake == Handshake::Yes ? kHandshakeStep : kConnectionStep, m_udid);
    if (const int code = step.ended(create(m_device.get(), out(m_lockdown), TDWServerName())))
        return TDWErrorCreate("lockdownd_client_new", code);
    return {};
}

void DeviceSession::disconnect()
{
    (void)lockdownd_goodbye(m_lockdown.get());
    m_lockdown.reset();
}

Result<void> DeviceSession::query()
{
    {
        TraceStep step(kQueryStep, m_udid);
        LibraryText type;
        if (const int code = step.ended(lockdownd_query_type(m_lockdown.get(), out(type))))
            return TDWErrorCreate("lockdownd_query_type", code);
    }
    // What it says matters as little as whether it may say it.
    const TraceStep step(kValueStep, m_udid);
    PropertyListNode version;
    (void)lockdownd_get_value(m_lockdown.get(), nullptr, "ProductVersion", out(version));
    return {};
}

bool DeviceSession::hasPairRecord() const
{
    LibraryText udid;
    if (idevice_get_udid(m_device.get(), out(udid)) != IDEVICE_E_SUCCESS)
        return false;
    TraceStep step(kRecordStep, m_udid);
    const bool isFound = tdw::hasPairRecord(udid.get()).value_or(false);
    (void)step.ended(isFound ? 0 : 1);
    return isFound;
}

std::optional<Value> DeviceSession::identity() const
{
    TraceStep step("identity of", m_udid);
    return TDWDeviceIDCreate(m_device.get(), m_lockdown.get());
}

Result<companion_proxy_client_t> DeviceSession::startCompanionProxy()
{
    m_service.reset();
    TraceStep step("companion service of", m_udid);
    CompanionProxyHandle proxy;
    if (const int code = step.ended(
            companion_proxy_client_start_service(m_device.get(), out(proxy), TDWServerName())))
        return TDWErrorCreate("companion_proxy_client_start_service", code);
    return keep(std::move(proxy));
}

} // namespace tdw
