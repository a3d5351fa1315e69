#include "Doctor/DeviceLibraries.h"

#include <dlfcn.h>

#include <cerrno>
#include <memory>

namespace tdw::cli {

namespace {

struct CloseLibrary {
    void operator()(void* handle) const { (void)::dlclose(handle); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

Result<Library> load(const char* name)
{
    Library library(::dlopen(name, RTLD_LAZY | RTLD_LOCAL));
    if (library)
        return library;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread loads libraries here
    const char* reason = ::dlerror();
    return Error::posix(ENOENT, reason ? reason : name);
}

/// What a function without arguments returns; `otherwise` where the library has none of that name.
std::string textFrom(const Library& library, const char* function, const char* otherwise)
{
    const auto call = reinterpret_cast<const char* (*)()>(::dlsym(library.get(), function));
    const char* text = call ? call() : nullptr;
    return text ? text : otherwise;
}

} // namespace

// The releases number themselves alike (two of them are 1.3.0), so that their functions tell.
Result<DeviceLibraries> loadedDeviceLibraries()
{
    const Library devices = TDW_TRY(load("libimobiledevice-1.0.so.6"));
    DeviceLibraries libraries;
    if (::dlsym(devices.get(), "idevice_strerror"))
        libraries.generation = 14;
    else if (::dlsym(devices.get(), "idevice_events_subscribe"))
        libraries.generation = 13;
    // libusbmuxd is found as what libimobiledevice needs: its own number differs between releases.
    const std::string multiplexerVersion = textFrom(devices, "libusbmuxd_version", "2.0");
    libraries.text = "libimobiledevice " + textFrom(devices, "libimobiledevice_version", "1.3.0")
        + ", libusbmuxd " + multiplexerVersion;
    if (libraries.generation == 12)
        libraries.knownFaults.emplace_back(
            "Tidewell removes its pauses of 100 ms in each handshake");
    if (multiplexerVersion.starts_with("2.1.0"))
        libraries.knownFaults.emplace_back(
            "Tidewell ends its endless sending to a device that has gone");
    return libraries;
}

} // namespace tdw::cli
