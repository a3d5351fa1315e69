#pragma once

#include <memory>
#include <utility>

namespace tdw {

// Later compilers take the result for a part of the argument, which is gone by then.
#if __has_cpp_attribute(gnu::no_dangling)
#define TDW_NO_DANGLING [[gnu::no_dangling]]
#else
#define TDW_NO_DANGLING
#endif

/// Moves a value to where `exit` does not destroy it, for what threads may still use at that time:
///
///     static const Queue& queue = neverDestroyed(Queue::serial("Signal"));
template <typename T>
TDW_NO_DANGLING const T& neverDestroyed(T value)
{
    return *std::make_unique<T>(std::move(value)).release();
}

} // namespace tdw
