#include "Platform/System/DescriptorLimit.h"

namespace tdw {

namespace {

std::optional<rlimit>& limitBefore()
{
    static std::optional<rlimit> limit;
    return limit;
}

rlimit currentLimit()
{
    rlimit limit {};
    (void)::getrlimit(RLIMIT_NOFILE, &limit);
    return limit;
}

} // namespace

void raiseDescriptorLimit()
{
    const rlimit before = currentLimit();
    const rlimit raised { .rlim_cur = before.rlim_max, .rlim_max = before.rlim_max };
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0)
        limitBefore() = before;
}

std::size_t descriptorLimit()
{
    return static_cast<std::size_t>(currentLimit().rlim_cur);
}

std::optional<rlimit> descriptorLimitOfChildren()
{
    return limitBefore();
}

} // namespace tdw
