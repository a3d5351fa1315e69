/// The functions of libusb-1.0 that Debian's multiplexer daemon imports, over the virtual bus.
/// What libusb's own documentation says of each of them holds here.
#include "LibUsb/ConfigurationDescriptor.h"
#include "LibUsb/VirtualBus.h"

#include <cstdlib>
#include <cstring>

using tdw::simulator::VirtualBus;

namespace {

VirtualBus& bus()
{
    return VirtualBus::instance();
}

const libusb_endpoint_descriptor* endpointOf(
    const libusb_config_descriptor& configuration, unsigned char address)
{
    for (int i = 0; i < configuration.bNumInterfaces; ++i) {
        const libusb_interface_descriptor& setting = configuration.interface[i].altsetting[0];
        for (int j = 0; j < setting.bNumEndpoints; ++j) {
            if (setting.endpoint[j].bEndpointAddress == address)
                return &setting.endpoint[j];
        }
    }
    return nullptr;
}

} // namespace

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** context)
{
    if (context)
        *context = nullptr;
    return bus().open();
}

void LIBUSB_CALL libusb_exit(libusb_context*) { }

const libusb_version* LIBUSB_CALL libusb_get_version()
{
    static const libusb_version version { 1, 0, 26, 0, "", "virtual bus" };
    return &version;
}

int libusb_set_option(libusb_context*, libusb_option, ...)
{
    return LIBUSB_SUCCESS;
}

int LIBUSB_CALL libusb_has_capability(uint32_t capability)
{
    return capability == LIBUSB_CAP_HAS_CAPABILITY || capability == LIBUSB_CAP_HAS_HOTPLUG ? 1 : 0;
}

const char* LIBUSB_CALL libusb_error_name(int code)
{
    switch (code) {
    case LIBUSB_SUCCESS:
        return "LIBUSB_SUCCESS";
    case LIBUSB_ERROR_IO:
        return "LIBUSB_ERROR_IO";
    case LIBUSB_ERROR_ACCESS:
        return "LIBUSB_ERROR_ACCESS";
    case LIBUSB_ERROR_NO_DEVICE:
        return "LIBUSB_ERROR_NO_DEVICE";
    case LIBUSB_ERROR_NOT_FOUND:
        return "LIBUSB_ERROR_NOT_FOUND";
    default:
        return "LIBUSB_ERROR_OTHER";
    }
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context*, libusb_device*** list)
{
    const auto devices = bus().presentDevices();
    *list = static_cast<libusb_device**>(std::calloc(devices.size() + 1, sizeof(libusb_device*)));
    std::copy(devices.begin(), devices.end(), *list);
    return static_cast<ssize_t>(devices.size());
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int)
{
    std::free(list); // NOLINT: devices live as long as the process
}

uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device* device)
{
    return static_cast<uint8_t>(device->location >> 8);
}

uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device* device)
{
    return static_cast<uint8_t>(device->location);
}

int LIBUSB_CALL libusb_get_device_speed(libusb_device* device)
{
    return device->speed;
}

int LIBUSB_CALL libusb_get_device_descriptor(
    libusb_device* device, libusb_device_descriptor* descriptor)
{
    *descriptor = device->descriptor;
    return 0;
}

int LIBUSB_CALL libusb_get_active_config_descriptor(
    libusb_device* device, libusb_config_descriptor** configuration)
{
    const auto index = static_cast<std::size_t>(device->configuration - 1);
    *configuration = index < device->configurations.size()
        ? tdw::simulator::parseConfiguration(device->configurations[index])
        : nullptr;
    return *configuration ? 0 : LIBUSB_ERROR_NOT_FOUND;
}

void LIBUSB_CALL libusb_free_config_descriptor(libusb_config_descriptor* configuration)
{
    tdw::simulator::freeConfiguration(configuration);
}

int LIBUSB_CALL libusb_get_max_packet_size(libusb_device* device, unsigned char endpoint)
{
    libusb_config_descriptor* configuration = nullptr;
    if (const int error = libusb_get_active_config_descriptor(device, &configuration); error != 0)
        return error;
    const libusb_endpoint_descriptor* found = endpointOf(*configuration, endpoint);
    const int size = found ? found->wMaxPacketSize : static_cast<int>(LIBUSB_ERROR_NOT_FOUND);
    libusb_free_config_descriptor(configuration);
    return size;
}

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle)
{
    if (device->openError != 0)
        return device->openError;
    if (!device->isPresent)
        return LIBUSB_ERROR_NO_DEVICE;
    *handle = new libusb_device_handle { device };
    return 0;
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle)
{
    delete handle;
}

int LIBUSB_CALL libusb_get_configuration(libusb_device_handle* handle, int* configuration)
{
    *configuration = handle->device->configuration;
    return 0;
}

int LIBUSB_CALL libusb_set_configuration(libusb_device_handle* handle, int configuration)
{
    return bus().configure(*handle->device, configuration);
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int)
{
    return handle->device->isPresent ? 0 : LIBUSB_ERROR_NO_DEVICE;
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle*, int)
{
    return 0;
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle*, int)
{
    return 0;
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle*, int)
{
    return LIBUSB_ERROR_NOT_FOUND;
}

libusb_transfer* LIBUSB_CALL libusb_alloc_transfer(int packets)
{
    return static_cast<libusb_transfer*>(std::calloc(1,
        sizeof(libusb_transfer)
            + static_cast<std::size_t>(packets) * sizeof(libusb_iso_packet_descriptor)));
}

void LIBUSB_CALL libusb_free_transfer(libusb_transfer* transfer)
{
    if (!transfer)
        return;
    if ((transfer->flags & LIBUSB_TRANSFER_FREE_BUFFER) != 0)
        std::free(transfer->buffer); // NOLINT: the caller's, from malloc
    std::free(transfer); // NOLINT: from calloc above
}

int LIBUSB_CALL libusb_submit_transfer(libusb_transfer* transfer)
{
    return bus().submit(transfer);
}

int LIBUSB_CALL libusb_cancel_transfer(libusb_transfer* transfer)
{
    return bus().cancel(transfer);
}

int LIBUSB_CALL libusb_handle_events_timeout(libusb_context*, timeval* timeout)
{
    bus().handleEvents(std::chrono::milliseconds(timeout->tv_sec * 1000 + timeout->tv_usec / 1000));
    return 0;
}

int LIBUSB_CALL libusb_get_next_timeout(libusb_context*, timeval*)
{
    return 0;
}

const libusb_pollfd** LIBUSB_CALL libusb_get_pollfds(libusb_context*)
{
    const auto& descriptors = bus().descriptors();
    auto** list = static_cast<const libusb_pollfd**>(
        std::calloc(descriptors.size() + 1, sizeof(libusb_pollfd*)));
    for (std::size_t i = 0; i < descriptors.size(); ++i)
        list[i] = &descriptors[i];
    return list;
}

int LIBUSB_CALL libusb_hotplug_register_callback(libusb_context*, int, int flags, int, int, int,
    libusb_hotplug_callback_fn callback, void* context, libusb_hotplug_callback_handle* handle)
{
    if (handle)
        *handle = 1;
    bus().observe(callback, context, (flags & LIBUSB_HOTPLUG_ENUMERATE) != 0);
    return LIBUSB_SUCCESS;
}

void LIBUSB_CALL libusb_hotplug_deregister_callback(libusb_context*, libusb_hotplug_callback_handle)
{
    bus().stopObserving();
}

} // extern "C"
