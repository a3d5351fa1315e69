#pragma once

#include "Platform/Export.h"

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <plist/plist.h>

#include <cstdint>

/// A client of the device's springboard services, for what concerns the screen: the orientation,
/// the wallpaper's details and a preview of it.
///
///     wallpaper_client_t client = nullptr;
///     if (wallpaper_client_start_service(device, &client, "label") == WALLPAPER_E_SUCCESS) …
///     wallpaper_client_free(client);
///
/// In the manner of libimobiledevice's own clients: C functions that return codes. A client is used
/// by one thread at a time; each command is one request and one reply.

extern "C" {

// NOLINTBEGIN(readability-identifier-naming): these names follow the device libraries' own.

/// The results, in the client's own numbering.
enum wallpaper_error_t : std::int32_t {
    WALLPAPER_E_SUCCESS = 0,
    WALLPAPER_E_INVALID_ARG = -1,
    WALLPAPER_E_PLIST_ERROR = -2,
    WALLPAPER_E_MUX_ERROR = -3,
    WALLPAPER_E_SSL_ERROR = -4,
    WALLPAPER_E_NOT_ENOUGH_DATA = -5,
    WALLPAPER_E_TIMEOUT = -6,
    WALLPAPER_E_UNKNOWN_ERROR = -256,
};

inline constexpr std::uint32_t WALLPAPER_NAME_LOCK_SCREEN = 0;
inline constexpr std::uint32_t WALLPAPER_NAME_HOME_SCREEN = 1;

/// The names on the wire, NUL-terminated.
TDW_EXPORT extern const char kWallpaperNameHomeScreen[];
TDW_EXPORT extern const char kWallpaperNameLockScreen[];

struct wallpaper_client_private;
typedef wallpaper_client_private* wallpaper_client_t;

/// The code that stands for one of the property-list service's.
TDW_EXPORT wallpaper_error_t wallpaper_error(int propertyListServiceCode);

/// The name on the wire: "lockscreen" for 0, "homescreen" for anything else. Never fails.
TDW_EXPORT const char* wallpaper_name_to_string(std::uint32_t name);

/// Connects to a service that has been started.
/// @param outClient cleared first; the caller frees what it receives
TDW_EXPORT wallpaper_error_t wallpaper_client_new(
    idevice_t device, lockdownd_service_descriptor_t service, wallpaper_client_t* outClient);

/// Starts the service and connects to it.
/// @param label how the device's logs call this program; may be null
/// @return `WALLPAPER_E_UNKNOWN_ERROR` where the service cannot be started
TDW_EXPORT wallpaper_error_t wallpaper_client_start_service(
    idevice_t device, wallpaper_client_t* outClient, const char* label);

/// Ends the connection and the client.
TDW_EXPORT wallpaper_error_t wallpaper_client_free(wallpaper_client_t client);

/// Sends one dictionary as a binary property list; it stays the caller's.
TDW_EXPORT wallpaper_error_t wallpaper_send(wallpaper_client_t client, plist_t request);

/// Receives one property list, which the caller frees.
/// @param timeout in milliseconds
/// @return success, or `WALLPAPER_E_MUX_ERROR` whatever went wrong, time-outs included
TDW_EXPORT wallpaper_error_t wallpaper_receive_with_timeout(
    wallpaper_client_t client, plist_t* outReply, std::uint32_t timeout);

/// The same within 10 seconds.
TDW_EXPORT wallpaper_error_t wallpaper_receive(wallpaper_client_t client, plist_t* outReply);

/// How the device is held, as it counts.
/// @param outOrientation left as it was where the reply does not tell
TDW_EXPORT wallpaper_error_t wallpaper_client_get_interface_orientation(
    wallpaper_client_t client, std::uint64_t* outOrientation);

/// The device's details of a wallpaper, as it gives them.
/// @param outInfo the caller frees it
TDW_EXPORT wallpaper_error_t wallpaper_client_get_wallpaper_info(
    wallpaper_client_t client, std::uint32_t name, plist_t* outInfo);

/// A preview of a wallpaper as a PNG.
/// @param widthPixels 0 or less lets the device choose
/// @param outImage,outLength left as they were where the reply has no image; the caller frees the
///        image with `free`
TDW_EXPORT wallpaper_error_t wallpaper_client_get_wallpaper_preview_image_png_data(
    wallpaper_client_t client, std::uint32_t name, double widthPixels, char** outImage,
    std::uint64_t* outLength);

// NOLINTEND(readability-identifier-naming)
}
