/* What tdw_companion tells of watches, asked for in the plain way, with the device library alone:
 * for each watch and each key a service of its own.
 *
 *     CompanionLoop UDID WATCH...
 */

#include <libimobiledevice/companion_proxy.h>
#include <libimobiledevice/libimobiledevice.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

static const char* const keys[]
    = { "DeviceName", "DeviceClass", "HardwareModel", "ProductType", "DeviceColor", "WiFiAddress",
          "BluetoothAddress", "SerialNumber", "ProductName", "ProductVersion", "BuildVersion",
          "BatteryCurrentCapacity", "BatteryIsCharging", "ExternalConnected", "FullyCharged" };

/* Prints one value; a watch may do without it. */
static int read_value(idevice_t device, const char* watch, const char* key)
{
    companion_proxy_client_t proxy = NULL;
    plist_t value = NULL;
    char* text = NULL;
    uint32_t length = 0;
    companion_proxy_error_t error
        = companion_proxy_client_start_service(device, &proxy, "CompanionLoop");
    if (error == COMPANION_PROXY_E_SUCCESS)
        error = companion_proxy_get_value_from_registry(proxy, watch, key, &value);
    if (value) {
        plist_to_xml(value, &text, &length);
        printf("%s", text);
    }
    free(text);
    plist_free(value);
    companion_proxy_client_free(proxy);
    return error == COMPANION_PROXY_E_SUCCESS || error == COMPANION_PROXY_E_UNSUPPORTED_KEY;
}

int main(int argc, char** argv)
{
    idevice_t device = NULL;
    int succeeded = 1;
    signal(SIGPIPE, SIG_IGN);
    if (argc < 3 || idevice_new_with_options(&device, argv[1], IDEVICE_LOOKUP_USBMUX))
        return EXIT_FAILURE;
    for (int watch = 2; watch < argc; ++watch) {
        for (size_t key = 0; key < sizeof keys / sizeof *keys; ++key)
            succeeded = read_value(device, argv[watch], keys[key]) && succeeded;
    }
    idevice_free(device);
    return succeeded ? EXIT_SUCCESS : EXIT_FAILURE;
}
