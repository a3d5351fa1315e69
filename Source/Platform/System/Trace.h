#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tdw {

/// The variable that names a process's trace: the path of a local datagram socket of the user's
/// own.
inline constexpr const char* kTraceVariable = "TIDEWELL_TRACE";

/// One step of a request. It is sent twice: when the step begins, and when it has ended.
struct TraceEvent {
    using Clock = std::chrono::steady_clock;

    pid_t process = 0;
    /// What is done, in words that the subject follows: "handshake with".
    std::string step {};
    /// A device's UDID or a server's name; may be empty.
    std::string subject {};
    Clock::time_point start {};
    /// None while the step is under way.
    std::optional<Clock::time_point> end {};
    /// What a library function returned; 0 is success.
    std::int64_t code = 0;

    bool operator==(const TraceEvent&) const = default;
};

/// The datagram of an event, and back; none for what is no event.
std::string traceDatagram(const TraceEvent& event);
std::optional<TraceEvent> traceEventIn(std::string_view datagram);

/// "handshake with 00008130-…: 14 ms, failed (-5)"
std::string traceText(const TraceEvent& event);

/// Where this process's steps are told: the value of `kTraceVariable` at first use, or what
/// `setTraceAddress` was given; empty: nowhere, and a step costs one comparison.
const std::string& traceAddress();

/// For a process that collects its own trace. To be called before other threads run.
void setTraceAddress(std::string path);

/// A step, from its construction to its destruction.
///
///     TraceStep step("handshake with", udid);
///     return step.ended(lockdownd_client_new_with_handshake(…));
///
/// What is told are the words given here, and nothing of what passes between host and device.
/// Without a listener the trace of this process ends. A listener that is slow is waited for a
/// bounded time. Safe for use by several threads at once.
class TraceStep {
public:
    /// @param step a literal
    /// @param subject a UDID or a server's name, never what a device said
    /// @param address of the trace, where it is another one's than this process's
    explicit TraceStep(const char* step, std::string_view subject = {},
        const std::string& address = traceAddress());
    TraceStep(const TraceStep&) = delete;
    TraceStep& operator=(const TraceStep&) = delete;
    ~TraceStep();

    /// Notes a library function's code, and passes it on.
    template <typename Code>
    Code ended(Code code)
    {
        m_event.code = static_cast<std::int64_t>(code);
        return code;
    }

private:
    TraceEvent m_event;
    std::string m_address;
};

} // namespace tdw
