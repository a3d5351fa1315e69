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
    /// The answer comes late.
    Delay,
    /// No answer, and the connection stays open.
    Hang,
    /// The connection closes without an answer.
    Drop,
    /// The answer's first bytes, then the end of the connection.
    Truncate,
    /// A frame of the right length whose content is no property list.
    Garbage,
    /// A length prefix beyond every limit.
    Oversize,
    /// One value of the answer is of another type.
    WrongType,
    /// One key of the answer is missing.
    MissingKey,
    /// The whole answer is a string.
    NotADictionary,
    /// The device refuses, with the fault's error.
    Error,
    /// The true answer, then the end of the connection.
    CloseAfterReply,
    /// The device is unplugged while the request is under way.
    Detach,
    /// The device presents a certificate of another pairing (TLS only).
    WrongCertificate,
    /// The multiplexer is not there at all.
    Absent,
    /// The first device record of a list or event lacks its SerialNumber.
    NoSerialNumber,
    /// ListDevices is answered with a Result and no list.
    ResultOnly,
};

/// The places where faults happen: the multiplexer, a device's lockdown service, its TLS
/// handshakes; any other place is the name of a service.
inline constexpr std::string_view kMuxPlace = "mux";
inline constexpr std::string_view kLockdownPlace = "lockdown";
inline constexpr std::string_view kTlsPlace = "tls";
/// The device on the virtual bus.
inline constexpr std::string_view kUsbPlace = "usb";
/// What the real daemon announces.
inline constexpr std::string_view kDaemonPlace = "daemon";

/// A point at which a fault may strike. The log keeps it as well.
struct FaultSite {
    std::string_view at;
    /// UDID, or empty where no device is concerned.
    std::string_view device;
    std::string_view request;
    const Dictionary* message = nullptr;
};

/// One injected fault: which sites it strikes, and how.
struct Fault {
    FaultKind kind = FaultKind::Drop;

    std::string at;
    std::optional<std::string> device;
    std::optional<std::string> request;
    /// An empty one is the global domain.
    std::optional<std::string> domain;
    std::optional<std::string> key;
    /// Of StartService.
    std::optional<std::string> service;

    /// The first matching visit that is struck.
    std::uint64_t first = 1;
    /// How many are struck; none: all from there on.
    std::optional<std::uint64_t> count;

    std::chrono::milliseconds delay { 0 };
    /// Truncate: how many bytes go out; none: half.
    std::optional<std::size_t> bytes;
    /// WrongType, MissingKey: which; none: the answer itself.
    std::optional<std::string> replyKey;
    /// WrongType: what stands there instead.
    std::optional<Value> value;
    /// Error: its name.
    std::string error;
};

/// Reads a fault from JSON; errors name `path` and the value.
/// @param directory what file names in values are relative to
Result<Fault> faultFromJson(
    const Json& json, const std::string& path, const std::filesystem::path& directory);

/// The faults that are in force, in the order of their injection.
class FaultTable {
public:
    /// @return the number by which the fault is cleared
    std::uint64_t add(Fault fault);

    /// Says whether there was such a fault.
    bool remove(std::uint64_t number);

    void clear() { m_entries.clear(); }

    /// The fault that strikes at this site. Counts the visit.
    std::optional<Fault> take(const FaultSite& site);

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
