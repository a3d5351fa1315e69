#include "Server/DeviceEvents.h"

#include <usbmuxd.h>

namespace tdw {

namespace {

#if TIDEWELL_HAS_EVENTS_SUBSCRIBE
idevice_error_t subscribeWith(idevice_event_cb_t callback, void*& subscription)
{
    idevice_subscription_context_t context = nullptr;
    const idevice_error_t code = idevice_events_subscribe(&context, callback, nullptr);
    subscription = context;
    return code;
}

void end(void* subscription)
{
    (void)idevice_events_unsubscribe(static_cast<idevice_subscription_context_t>(subscription));
}
#else
idevice_error_t subscribeWith(idevice_event_cb_t callback, void*& subscription)
{
    // There is no handle; anything but null says that there is a subscription.
    static char gTheOnlyOne = 0;
    subscription = &gTheOnlyOne;
    return idevice_event_subscribe(callback, nullptr);
}

void end(void* /*subscription*/)
{
    (void)idevice_event_unsubscribe();
}
#endif

/// By default the library waits for a file in /var/run before it looks for the multiplexer again,
/// wherever that really listens. Without that it asks once a second.
void lookForTheMultiplexerAtItsAddress()
{
#if TIDEWELL_HAS_SET_USE_INOTIFY
    libusbmuxd_set_use_inotify(0);
#endif
}

} // namespace

idevice_error_t DeviceEvents::subscribe(idevice_event_cb_t callback)
{
    lookForTheMultiplexerAtItsAddress();
    void* subscription = nullptr;
    const idevice_error_t code = subscribeWith(callback, subscription);
    if (code == IDEVICE_E_SUCCESS)
        m_subscription = subscription;
    return code;
}

void DeviceEvents::unsubscribe()
{
    if (void* subscription = m_subscription.exchange(nullptr))
        end(subscription);
}

} // namespace tdw
