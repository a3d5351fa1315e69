#include "Platform/Endpoint.h"

#include <cerrno>

namespace tdw {

Result<Endpoint> Endpoint::fromValue(const Value& value)
{
    const std::string* path = value.asString();
    if (!path || !path->starts_with('/'))
        return Error::posix(EINVAL, "No listener has the address " + value.debugDescription());
    return Endpoint(*path);
}

} // namespace tdw
