#pragma once

#include <memory>
#include <utility>

namespace tdw {

template <auto Free>
struct HandleDeleter {
    template <typename T>
    void operator()(T* handle) const noexcept
    {
        (void)Free(handle);
    }
};

/// The owner of a handle of a C library; `Free` is the library's own function for it.
///
///     using DeviceHandle = Handle<idevice_private, &idevice_free>;
///     DeviceHandle device;
///     const auto code = idevice_new(out(device), udid);
template <typename T, auto Free>
using Handle = std::unique_ptr<T, HandleDeleter<Free>>;

/// What `out` makes; see there.
template <typename T, typename Deleter>
class OutPointer {
public:
    explicit OutPointer(std::unique_ptr<T, Deleter>& handle)
        : m_handle(handle)
    {
    }
    OutPointer(const OutPointer&) = delete;
    OutPointer& operator=(const OutPointer&) = delete;
    ~OutPointer() { m_handle.reset(m_pointer); }

    // NOLINTNEXTLINE(google-explicit-constructor): its only use is as an argument
    operator T**() { return &m_pointer; }

private:
    std::unique_ptr<T, Deleter>& m_handle;
    T* m_pointer = nullptr;
};

/// Lets a C function fill a handle. The handle is filled at the semicolon: do not test it in the
/// same expression.
template <typename T, typename Deleter>
OutPointer<T, Deleter> out(std::unique_ptr<T, Deleter>& handle)
{
    return OutPointer<T, Deleter>(handle);
}

} // namespace tdw
