#pragma once

#include "Platform/Handle.h"

#include <libimobiledevice/companion_proxy.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <cstdlib>

namespace tdw {

/// The owners of everything that libimobiledevice hands out. Freeing a client ends a conversation
/// with the device and can wait for it; `DeviceSession` and `answerRequest` bound that.
using DeviceHandle = Handle<idevice_private, &idevice_free>;
using DeviceListHandle = Handle<idevice_info_t, &idevice_device_list_extended_free>;
using LockdownClientHandle = Handle<lockdownd_client_private, &lockdownd_client_free>;
using ServiceDescriptorHandle
    = Handle<lockdownd_service_descriptor, &lockdownd_service_descriptor_free>;
using CompanionProxyHandle = Handle<companion_proxy_client_private, &companion_proxy_client_free>;

/// Text that libimobiledevice or libplist allocated.
using LibraryText = Handle<char, &std::free>;

} // namespace tdw
