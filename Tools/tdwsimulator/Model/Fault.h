#pragma once

#include "Model/Json.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// What goes wrong, instead of or on top of the honest answer.
enum class FaultKind {
    Delay, ///< the answer comes late
    Hang, ///< no answer, and the connection stays open
    Drop, ///< the connection closes without an answer
    Truncate, ///< the answer's first bytes, then the end of the connection
    Garbage, ///< a frame of the right length whose content is no property list
    Oversize, ///< a length prefix that promises more than anybody should believe
    WrongType, ///< one value of the answer is of another type
    MissingKey, ///< one key of the answer is missing
    NotADictionary, ///< the whole answer is a string
    Error, ///< the device refuses, with an error of one's choice
    CloseAfterReply, ///< the honest answer, then the end of the connection
    Detach, ///< the device is unplugged while the request is under way
    WrongCertificate, ///< the device presents a certificate of another pairing (TLS only)
    Absent, ///< the multiplexer is not there at all
    NoSerialNumber, ///< the first device record of a list or event lacks its SerialNumber
    ResultOnly, ///< ListDevices is answered with a Result and no list
};

/// The places where faults happen: the multiplexer, a device's lockdown service, its TLS
/// handshakes; any other place is the name of a service.
inline constexpr std::string_view kMuxPlace = "mux";
inline constexpr std::string_view kLockdownPlace = "lockdown";
inline constexpr std::string_view kTlsPlace = "tls";
inline constexpr std::string_view kUsbPlace = "usb"; ///< the device on the virtual bus
inline constexpr std::string_view kDaemonPlace = "daemon"; ///< what the real daemon announces

/// One thing that happens at one place: what faults are matched with, and what the log keeps.
struct Occurrence {
    std::string_view at;
    std::string_view device; ///< UDID, or empty where no device is concerned
    std::string_view request;
    const Dictionary* message = nullptr;
};

/// One injected fault: which occurrences it strikes, and how.
struct Fault {
    FaultKind kind = FaultKind::Drop;

    std::string at;
    std::optional<std::string> device;
    std::optional<std::string> request;
    std::optional<std::string> domain; ///< an empty one is the global domain
    std::optional<std::string> key;
    std::optional<std::string> service; ///< of StartService

    std::uint64_t first = 1; ///< the first matching occurrence that is struck
    std::optional<std::uint64_t> count; ///< how many are struck; none: all from there on

    std::chrono::milliseconds delay { 0 };
    std::optional<std::size_t> bytes; ///< Truncate: how many bytes go out; none: half
    std::optional<std::string> replyKey; ///< WrongType, MissingKey: which; none: the answer itself
    std::optional<Value> value; ///< WrongType: what stands there instead
    std::string error; ///< Error: its name
};

/// Reads a fault from JSON; errors name `path` and the value.
/// @param directory what file names in values are relative to
Result<Fault> faultFromJson(
    const Json& json, const std::string& path, const std::filesystem::path& directory);

/// The faults that are in force, in the order of their injection.
class FaultTable {
public:
    /// @returns the number by which the fault is cleared
    std::uint64_t add(Fault fault);

    /// Says whether there was such a fault.
    bool remove(std::uint64_t number);

    void clear() { m_entries.clear(); }

    /// The fault that strikes this occurrence, which thereby counts.
    std::optional<Fault> take(const Occurrence& occurrence);

    /// Says whether a fault of this kind is in force at this place.
    bool contains(FaultKind kind, std::string_view at) const;

private:
    struct Entry {
        std::uint64_t number = 0;
        Fault fault;
        std::uint64_t seen = 0;
    };

    std::vector<Entry> m_entries;
    std::uint64_t m_lastNumber = 0;
};

} // namespace tdw::simulator
