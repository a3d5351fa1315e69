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
    Arrived = 1, ///< payload: device descriptor, then all configurations; status: of opening it
    Left,
    Ready, ///< what was on the bus from the beginning has been said
    Input, ///< payload: one bulk transfer of the device
    ControlReply, ///< number: the request's; payload: the data stage
    // from the stand-in
    Output, ///< payload: one bulk transfer to the device
    Control, ///< payload: the setup packet and its data stage
    Configure, ///< status: the configuration that was chosen
};

struct UsbHeader {
    std::uint32_t length = 0;
    std::uint32_t number = 0;
    std::int32_t status = 0;
    UsbMessage kind = UsbMessage::Ready;
    std::uint8_t speed = 0; ///< as libusb counts speeds
    std::uint16_t device = 0; ///< bus << 8 | address
};
static_assert(sizeof(UsbHeader) == 16);

/// The variable that tells the stand-in where the simulator's socket is.
inline constexpr const char* kUsbSocketVariable = "TDWSIMULATOR_USB";

/// No transfer is longer: the daemon sends at most 48 KiB at once, and takes 64 KiB.
inline constexpr std::size_t kUsbMaximumTransfer = 0x10000;

/// A control transfer begins with its setup packet.
inline constexpr std::size_t kUsbSetupSize = 8;

} // namespace tdw::simulator
