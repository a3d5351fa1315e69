#pragma once

#include <cstddef>
#include <cstdint>

/// What the stand-in for libusb and the simulator say to each other over a local stream socket.
///
///      0        4       8         12     13      14     16
///     | length | number | status | kind | speed | device | payload …     of this machine's order,
///                                                          |<-length->|
///
/// Both ends are of one build and run on one machine.
namespace tdw::simulator {

enum class UsbMessage : std::uint8_t {
    // from the simulator
    /// Payload: device descriptor, then all configurations; status: of opening it.
    Arrived = 1,
    Left,
    /// What was on the bus from the beginning has been said.
    Ready,
    /// Payload: one bulk transfer of the device.
    Input,
    /// Number: the request's; payload: the data stage.
    ControlReply,
    // from the stand-in
    /// Payload: one bulk transfer to the device.
    Output,
    /// Payload: the setup packet and its data stage.
    Control,
    /// Status: the configuration that was chosen.
    Configure,
};

struct UsbHeader {
    std::uint32_t length = 0;
    std::uint32_t number = 0;
    std::int32_t status = 0;
    UsbMessage kind = UsbMessage::Ready;
    /// As libusb counts speeds.
    std::uint8_t speed = 0;
    /// `bus << 8 | address`
    std::uint16_t device = 0;
};
static_assert(sizeof(UsbHeader) == 16);

/// The variable that tells the stand-in where the simulator's socket is.
inline constexpr const char* kUsbSocketVariable = "TDWSIMULATOR_USB";

/// No transfer is longer: the daemon sends at most 48 KiB at once, and takes 64 KiB.
inline constexpr std::size_t kUsbMaximumTransfer = 0x10000;

/// A control transfer begins with its setup packet.
inline constexpr std::size_t kUsbSetupSize = 8;

} // namespace tdw::simulator
