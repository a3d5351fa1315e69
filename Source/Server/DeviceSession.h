#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Server/DeviceHandles.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tdw {

enum class Handshake { Yes, No };

/// The device of one request, and the clients that are open on it.
///
///     TDW_TRY(session.open(udid, options));
///     TDW_TRY(session.connect(Handshake::Yes));
///     lockdownd_get_value(session.lockdown(), …);
///
/// Whatever is opened is freed with this object: the service client, the lockdown client, the
/// device. Each of them can wait for the device for half a minute, so the object outlives the
/// request's answer. An error has the code of the library's function, and its name where nothing
/// else is said.
class DeviceSession {
public:
    /// Looks the device up: `idevice_new_with_options`.
    Result<void> open(const char* udid, enum idevice_options options);

    /// Opens a lockdown client. The error is that of `lockdownd_client_new` in both cases.
    /// @param handshake `Yes` for a trusted session; the library pairs where this host has no
    ///        record of the device, and the device asks its user
    Result<void> connect(Handshake handshake);

    /// Ends the conversation with lockdown, so that the next one starts from nothing.
    void disconnect();

    /// Asks the lockdown client what it is, and for one value: `lockdownd_query_type`.
    Result<void> query();

    /// Whether this host has a record of being paired with the device, as the multiplexer says,
    /// that the library can use. With any other it pairs, and the device asks its user.
    bool hasPairRecord() const;

    /// The device identity record; see `TDWDeviceIDCreate`.
    std::optional<Value> identity() const;

    /// A new client of the companion proxy. The one before is freed, because one client serves one
    /// command: `companion_proxy_client_start_service`.
    Result<companion_proxy_client_t> startCompanionProxy();

    /// Takes the client of a service over, in the place of the one before.
    template <typename T, auto Free>
    T* keep(Handle<T, Free> client)
    {
        T* borrowed = client.get();
        m_service = std::shared_ptr<void>(std::move(client));
        return borrowed;
    }

    const std::string& udid() const { return m_udid; }
    idevice_t device() const { return m_device.get(); }
    lockdownd_client_t lockdown() const { return m_lockdown.get(); }

private:
    std::string m_udid;
    DeviceHandle m_device;
    LockdownClientHandle m_lockdown;
    std::shared_ptr<void> m_service;
};

} // namespace tdw
