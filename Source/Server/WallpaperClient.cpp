#include "Server/WallpaperClient.h"

#include "Platform/Handle.h"
#include "Server/PropertyListNode.h"

#include <libimobiledevice/property_list_service.h>
#include <libimobiledevice/service.h>

#include <array>
#include <memory>

const char kWallpaperNameHomeScreen[] = "homescreen";
const char kWallpaperNameLockScreen[] = "lockscreen";

using tdw::PropertyListNode;

namespace {

using PropertyListClient
    = tdw::Handle<property_list_service_client_private, &property_list_service_client_free>;

constexpr char kServiceName[] = "com.apple.springboardservices";
constexpr std::uint32_t kReplyTimeout = 10'000;

} // namespace

struct wallpaper_client_private {
    PropertyListClient parent;
};

namespace {

/// The constructor that the library's service factory calls.
std::int32_t construct(idevice_t device, lockdownd_service_descriptor_t service, void** outClient)
{
    wallpaper_client_t client = nullptr;
    const wallpaper_error_t result = wallpaper_client_new(device, service, &client);
    *outClient = client;
    return result;
}

PropertyListNode requestFor(const char* command)
{
    PropertyListNode request(plist_new_dict());
    plist_dict_set_item(request.get(), "command", plist_new_string(command));
    return request;
}

void addName(const PropertyListNode& request, std::uint32_t name)
{
    plist_dict_set_item(
        request.get(), "wallpaperName", plist_new_string(wallpaper_name_to_string(name)));
}

/// One request and its reply.
wallpaper_error_t exchange(
    wallpaper_client_t client, PropertyListNode request, PropertyListNode& reply)
{
    if (!client)
        return WALLPAPER_E_INVALID_ARG;
    const wallpaper_error_t sent = wallpaper_send(client, request.get());
    return sent == WALLPAPER_E_SUCCESS ? wallpaper_receive(client, out(reply)) : sent;
}

/// The value under a key of a reply, where it has the type; null otherwise. libplist's accessors
/// end the process over a node of another type.
plist_t valueOfType(const PropertyListNode& reply, const char* key, plist_type type)
{
    const plist_t value = plist_dict_get_item(reply.get(), key);
    return value && plist_get_node_type(value) == type ? value : nullptr;
}

} // namespace

wallpaper_error_t wallpaper_error(int propertyListServiceCode)
{
    // From -6 to 0. The two numberings have the last two codes the other way round.
    constexpr std::array kErrors { WALLPAPER_E_NOT_ENOUGH_DATA, WALLPAPER_E_TIMEOUT,
        WALLPAPER_E_SSL_ERROR, WALLPAPER_E_MUX_ERROR, WALLPAPER_E_PLIST_ERROR,
        WALLPAPER_E_INVALID_ARG, WALLPAPER_E_SUCCESS };
    constexpr int kLowest = -6;
    if (propertyListServiceCode < kLowest || propertyListServiceCode > 0)
        return WALLPAPER_E_UNKNOWN_ERROR;
    return kErrors[static_cast<std::size_t>(propertyListServiceCode - kLowest)];
}

const char* wallpaper_name_to_string(std::uint32_t name)
{
    return name == WALLPAPER_NAME_LOCK_SCREEN ? kWallpaperNameLockScreen : kWallpaperNameHomeScreen;
}

wallpaper_error_t wallpaper_client_new(
    idevice_t device, lockdownd_service_descriptor_t service, wallpaper_client_t* outClient)
{
    *outClient = nullptr;
    if (!device || !service || service->port == 0)
        return WALLPAPER_E_INVALID_ARG;
    auto client = std::make_unique<wallpaper_client_private>();
    const auto code = property_list_service_client_new(device, service, out(client->parent));
    if (code != PROPERTY_LIST_SERVICE_E_SUCCESS)
        return wallpaper_error(code);
    *outClient = client.release();
    return WALLPAPER_E_SUCCESS;
}

wallpaper_error_t wallpaper_client_start_service(
    idevice_t device, wallpaper_client_t* outClient, const char* label)
{
    std::int32_t code = WALLPAPER_E_UNKNOWN_ERROR;
    void* client = nullptr;
    service_client_factory_start_service(device, kServiceName, &client, label, &construct, &code);
    *outClient = static_cast<wallpaper_client_t>(client);
    return static_cast<wallpaper_error_t>(code);
}

wallpaper_error_t wallpaper_client_free(wallpaper_client_t client)
{
    if (!client)
        return WALLPAPER_E_INVALID_ARG;
    const std::unique_ptr<wallpaper_client_private> owner(client);
    return wallpaper_error(property_list_service_client_free(owner->parent.release()));
}

wallpaper_error_t wallpaper_send(wallpaper_client_t client, plist_t request)
{
    return wallpaper_error(property_list_service_send_binary_plist(client->parent.get(), request));
}

wallpaper_error_t wallpaper_receive_with_timeout(
    wallpaper_client_t client, plist_t* outReply, std::uint32_t timeout)
{
    PropertyListNode reply;
    const auto code = property_list_service_receive_plist_with_timeout(
        client->parent.get(), out(reply), timeout);
    if (code != PROPERTY_LIST_SERVICE_E_SUCCESS || !reply)
        return WALLPAPER_E_MUX_ERROR;
    *outReply = reply.release();
    return WALLPAPER_E_SUCCESS;
}

wallpaper_error_t wallpaper_receive(wallpaper_client_t client, plist_t* outReply)
{
    return wallpaper_receive_with_timeout(client, outReply, kReplyTimeout);
}

wallpaper_error_t wallpaper_client_get_interface_orientation(
    wallpaper_client_t client, std::uint64_t* outOrientation)
{
    PropertyListNode reply;
    const auto result = exchange(client, requestFor("getInterfaceOrientation"), reply);
    if (result != WALLPAPER_E_SUCCESS)
        return result;
    if (plist_dict_get_item(reply.get(), "interfaceOrientation")) {
        *outOrientation = 0;
        if (const plist_t value = valueOfType(reply, "interfaceOrientation", PLIST_UINT))
            plist_get_uint_val(value, outOrientation);
    }
    return WALLPAPER_E_SUCCESS;
}

wallpaper_error_t wallpaper_client_get_wallpaper_info(
    wallpaper_client_t client, std::uint32_t name, plist_t* outInfo)
{
    PropertyListNode request = requestFor("getWallpaperInfo");
    addName(request, name);
    PropertyListNode reply;
    const auto result = exchange(client, std::move(request), reply);
    if (result == WALLPAPER_E_SUCCESS)
        *outInfo = reply.release();
    return result;
}

wallpaper_error_t wallpaper_client_get_wallpaper_preview_image_png_data(wallpaper_client_t client,
    std::uint32_t name, double widthPixels, char** outImage, std::uint64_t* outLength)
{
    PropertyListNode request = requestFor("getWallpaperPreviewImage");
    addName(request, name);
    if (widthPixels > 0.0)
        plist_dict_set_item(request.get(), "widthPixels", plist_new_real(widthPixels));
    PropertyListNode reply;
    const auto result = exchange(client, std::move(request), reply);
    if (result != WALLPAPER_E_SUCCESS)
        return result;
    if (const plist_t image = valueOfType(reply, "pngData", PLIST_DATA))
        plist_get_data_val(image, outImage, outLength);
    return WALLPAPER_E_SUCCESS;
}
