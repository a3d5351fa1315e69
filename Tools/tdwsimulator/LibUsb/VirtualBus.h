#pragma once

#include "Usb/UsbWire.h"

#include <libusb.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// One device on the virtual bus, under the name that libusb's callers know.
struct libusb_device {
    /// `bus << 8 | address`
    std::uint16_t location = 0;
    int speed = 0;
    int openError = 0;
    bool isPresent = true;
    libusb_device_descriptor descriptor {};
    std::vector<std::vector<std::uint8_t>> configurations;
    /// As the kernel leaves it.
    int configuration = 1;

    struct Received {
        std::vector<std::uint8_t> bytes;
        std::size_t taken = 0;
    };
    std::deque<Received> input;
    /// Bulk transfers that wait for input.
    std::deque<libusb_transfer*> readers;
};

struct libusb_device_handle {
    libusb_device* device = nullptr;
};

namespace tdw::simulator {

/// The bus that the daemon sees: its devices, transfers and hotplug callback, fed by the simulator
/// over one socket.
///
/// For one thread, like the daemon's use of libusb. Devices are kept until the process ends, since
/// callers hold pointers to them.
class VirtualBus {
public:
    static VirtualBus& instance();

    /// Connects to the simulator and learns what is on the bus already.
    /// @return 0 or a libusb error
    int open();

    std::vector<libusb_device*> presentDevices() const;

    int submit(libusb_transfer* transfer);
    int cancel(libusb_transfer* transfer);
    int configure(libusb_device& device, int configuration);

    /// Calls back for every device that comes or goes, and at once for those that are there.
    void observe(libusb_hotplug_callback_fn callback, void* context, bool enumerates);
    void stopObserving() { m_callback = nullptr; }

    /// The descriptors that become readable when there is something to handle.
    const std::vector<libusb_pollfd>& descriptors() const { return m_descriptors; }

    /// Takes what has come, waits for something where nothing has, and calls back.
    void handleEvents(std::chrono::milliseconds timeout);

private:
    struct Completion {
        libusb_transfer* transfer;
        libusb_transfer_status status;
    };

    void wait(std::chrono::milliseconds timeout);
    void receive(int flags);
    void handle(const UsbHeader& header, std::span<const std::uint8_t> payload);
    void arrive(const UsbHeader& header, std::span<const std::uint8_t> payload);
    void leave(libusb_device& device);
    void feed(libusb_device& device);
    void finishControl(const UsbHeader& header, std::span<const std::uint8_t> payload);
    void complete(libusb_transfer* transfer, libusb_transfer_status status);
    void deliver();
    bool send(const UsbHeader& header, std::span<const std::uint8_t> payload);
    libusb_device* find(std::uint16_t location) const;
    void tell(libusb_device& device, libusb_hotplug_event event);
    void hangUp();

    int m_socket = -1;
    int m_wakeup = -1;
    bool m_isReady = false;
    std::vector<libusb_pollfd> m_descriptors;
    std::vector<std::uint8_t> m_bytes;
    std::vector<std::unique_ptr<libusb_device>> m_devices;
    std::map<std::uint32_t, libusb_transfer*> m_controls;
    std::uint32_t m_lastControl = 0;
    std::deque<Completion> m_completions;
    std::deque<std::pair<libusb_device*, libusb_hotplug_event>> m_news;
    libusb_hotplug_callback_fn m_callback = nullptr;
    void* m_context = nullptr;
};

} // namespace tdw::simulator
