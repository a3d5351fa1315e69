#pragma once

#include <libimobiledevice/libimobiledevice.h>

#include <atomic>

namespace tdw {

/// The subscription to device events, in whichever way this release of the library has it: Debian
/// 12's knows one per process and no handle, later ones hand out handles.
///
/// It is made on one thread and may be ended on another. It is not ended with this object: a
/// process that has one keeps it until it exits.
class DeviceEvents {
public:
    /// From now on `callback` is called on a thread of the library, with null for its user data:
    /// for every device that is attached, and for what happens after that. The multiplexer may come
    /// later, go and come back, at whatever address. To be called once.
    idevice_error_t subscribe(idevice_event_cb_t callback);

    /// Ends the subscription where there is one. Newer releases report each device as gone at that
    /// moment; all wait for a call of `callback` that is under way.
    void unsubscribe();

private:
    std::atomic<void*> m_subscription = nullptr;
};

} // namespace tdw
