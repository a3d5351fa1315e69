// The sign of a failed send.
//
// libusbmuxd 2.1.0 returns errno of a failed send as a positive number, where its interface, and
// every other release, has it negative. libimobiledevice takes anything that is not negative for
// success without a byte sent, and sends again: for ever, with a whole processor, whenever a device
// has closed its connection. This process therefore brings its own usbmuxd_send, which the dynamic
// linker binds libimobiledevice's calls to: it calls the library's and turns the sign. There is no
// positive result in a release that is right, so those are not changed.

#include <dlfcn.h>
#include <usbmuxd.h>

#include <cerrno>
#include <cstdint>

extern "C" __attribute__((visibility("default"))) int usbmuxd_send(
    int sfd, const char* data, std::uint32_t len, std::uint32_t* sentBytes)
{
    static const auto next
        = reinterpret_cast<decltype(&usbmuxd_send)>(dlsym(RTLD_NEXT, "usbmuxd_send"));
    const int result = next ? next(sfd, data, len, sentBytes) : -ENOSYS;
    return result > 0 ? -result : result;
}
