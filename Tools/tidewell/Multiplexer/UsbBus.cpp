#include "Multiplexer/UsbBus.h"

#include "Platform/System/FileHandle.h"

#include <fcntl.h>

#include <charconv>
#include <cstdlib>
#include <string_view>
#include <system_error>

namespace tdw::cli {

namespace {

constexpr std::string_view kApple = "05ac";

/// The product numbers that usbmuxd takes for its own.
constexpr unsigned kFirstProduct = 0x1290;
constexpr unsigned kLastProduct = 0x12af;

constexpr std::size_t kNewUdidLength = 24;
constexpr std::size_t kNewUdidHyphen = 8;

const char* sysfsVariable()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    return std::getenv("SYSFS_PATH");
}

/// The one line of an attribute; empty where it cannot be read.
std::string attribute(const std::filesystem::path& device, const char* name)
{
    FileHandle file(open((device / name).c_str(), O_RDONLY | O_CLOEXEC));
    const auto bytes = file.isOpen() ? file.readToEnd() : Result<Data>(Data());
    const std::string_view text = bytes
        ? std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size())
        : std::string_view();
    return std::string(text.substr(0, text.find_first_of(std::string_view("\n\0", 2))));
}

bool isDevice(const std::filesystem::path& device)
{
    const std::string product = attribute(device, "idProduct");
    unsigned number = 0;
    (void)std::from_chars(product.data(), product.data() + product.size(), number, 16);
    return attribute(device, "idVendor") == kApple && number >= kFirstProduct
        && number <= kLastProduct;
}

} // namespace

std::filesystem::path sysfsRoot()
{
    const char* variable = sysfsVariable();
    return variable && *variable ? variable : "/sys";
}

std::vector<std::string> devicesOnUsbBus(const std::filesystem::path& sysfs)
{
    std::vector<std::string> udids;
    std::error_code error;
    for (const auto& entry :
        std::filesystem::directory_iterator(sysfs / "bus/usb/devices", error)) {
        if (!isDevice(entry.path()))
            continue;
        // The multiplexer puts a hyphen into the newer ones.
        std::string udid = attribute(entry.path(), "serial");
        if (udid.size() == kNewUdidLength)
            udid.insert(kNewUdidHyphen, "-");
        udids.push_back(std::move(udid));
    }
    return udids;
}

bool isOwnUsbBus(bool isMultiplexerFromEnvironment)
{
    return !isMultiplexerFromEnvironment || sysfsVariable();
}

} // namespace tdw::cli
