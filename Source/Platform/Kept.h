#pragma once

#include <memory>
#include <utility>

namespace tdw {

/// Moves a value to where `exit` does not destroy it, for what threads may still use at that time:
///
///     static const Queue& queue = kept(Queue::serial("Signal"));
template <typename T>
const T& kept(T value)
{
    return *std::make_unique<T>(std::move(value)).release();
}

} // namespace tdw
