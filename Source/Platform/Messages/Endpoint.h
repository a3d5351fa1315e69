#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Result.h"

#include <string>

namespace tdw {

/// The address of a private listener: it is all that is needed to connect to the listener. It
/// can be sent in a message, or written down.
class TDW_EXPORT Endpoint {
public:
    /// @param path of the listener's socket, absolute
    explicit Endpoint(std::string path)
        : m_path(std::move(path))
    {
    }

    /// Reads what `value` has written. Errors: EINVAL; it is no absolute path.
    static Result<Endpoint> fromValue(const Value& value);
    Value value() const;

    const std::string& path() const { return m_path; }

    bool operator==(const Endpoint&) const = default;

private:
    std::string m_path;
};

} // namespace tdw
