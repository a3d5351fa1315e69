#include "Platform/Messages/Endpoint.h"

#include "Platform/Values/Value.h"

#include <cerrno>

namespace tdw {

Result<Endpoint> Endpoint::fromValue(const Value& value)
{
    const std::string* path = value.asString();
    if (!path || !path->starts_with('/'))
        return Error::posix(EINVAL, "No listener has the address " + value.debugDescription());
    return Endpoint(*path);
}

Value Endpoint::value() const
{
    return m_path;
}

} // namespace tdw
