# Each dependency has its reason in Docs/architecture.md.
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LibPlist REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(LibUsbmuxd REQUIRED IMPORTED_TARGET libusbmuxd-2.0)
pkg_check_modules(LibImobiledevice REQUIRED IMPORTED_TARGET libimobiledevice-1.0)
pkg_check_modules(LibSystemd REQUIRED IMPORTED_TARGET libsystemd)
find_package(OpenSSL REQUIRED)
find_package(PNG 1.6 REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(CLI11 REQUIRED)

# Asio ships neither a pkg-config file nor a CMake package.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(Asio INTERFACE)
target_include_directories(Asio SYSTEM INTERFACE "${ASIO_INCLUDE_DIR}")
target_compile_definitions(Asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(Asio INTERFACE Threads::Threads)

# The releases of the device libraries differ, and their version numbers do not tell.
include(CheckSymbolExists)
function(tidewell_check_library target symbol header result)
  set(CMAKE_REQUIRED_LIBRARIES ${target})
  check_symbol_exists(${symbol} "${header}" ${result})
endfunction()
tidewell_check_library(PkgConfig::LibImobiledevice idevice_events_subscribe
  libimobiledevice/libimobiledevice.h TIDEWELL_HAS_EVENTS_SUBSCRIBE)
tidewell_check_library(PkgConfig::LibUsbmuxd libusbmuxd_set_use_inotify
  usbmuxd.h TIDEWELL_HAS_SET_USE_INOTIFY)

# The Debian release whose libraries these are, or are like: for what they do differently and no symbol
# tells, such as the codes of some failures.
set(TIDEWELL_DEVICE_LIBRARY_GENERATION 12)
if(TIDEWELL_HAS_EVENTS_SUBSCRIBE)
  set(TIDEWELL_DEVICE_LIBRARY_GENERATION 13)
endif()
