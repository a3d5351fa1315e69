#include "Devices/DeviceSelection.h"

#include "Errors/CommandLineError.h"
#include "Platform/Values/Utf8.h"

#include <algorithm>

namespace tdw::cli {

namespace {

/// Names have 63 bytes at most, as far as is known.
constexpr std::size_t kLongestText = 256;
constexpr std::size_t kShortestWholeUdid = 24;
constexpr std::size_t kLongestWholeUdid = 40;

constexpr std::string_view kTypographicApostrophe = "\xE2\x80\x99";

// The standard functions ask the locale, which is no business of identifiers.
char lowered(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

bool isHexDigit(char character)
{
    const char low = lowered(character);
    return (low >= '0' && low <= '9') || (low >= 'a' && low <= 'f');
}

std::string comparableName(std::string_view name)
{
    std::string result;
    while (!name.empty()) {
        const bool isApostrophe = name.starts_with(kTypographicApostrophe);
        result += isApostrophe ? '\'' : lowered(name.front());
        name.remove_prefix(isApostrophe ? kTypographicApostrophe.size() : 1);
    }
    return result;
}

Error ambiguous(std::string_view text, const std::string& candidates)
{
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "\"" + std::string(text) + "\" matches more than one:\n" + candidates,
        .advice = "Give more of it, or the whole UDID." });
}

} // namespace

std::string comparableUdid(std::string_view udid)
{
    std::string result;
    for (const char character : udid) {
        if (character != '-')
            result += lowered(character);
    }
    return result;
}

Result<void> validateDeviceText(std::string_view text)
{
    const auto refused = [&](const char* why) {
        return commandLineError({ .status = ExitStatus::Usage,
            .reason = "\"" + std::string(text.substr(0, kLongestText))
                + "\" is neither a UDID nor a name: " + why });
    };
    if (text.empty())
        return refused("it is empty.");
    if (text.size() > kLongestText)
        return refused("it is too long.");
    if (!isValidUtf8(text) || withControlCharactersEscaped(text) != text)
        return refused("it holds characters that cannot be shown.");
    return {};
}

bool isWholeUdid(std::string_view text)
{
    const auto udid = comparableUdid(text);
    return udid.size() >= kShortestWholeUdid && udid.size() <= kLongestWholeUdid
        && std::all_of(udid.begin(), udid.end(), isHexDigit);
}

Result<std::optional<ListedDevice>> selectByUdid(
    std::string_view text, const std::vector<ListedDevice>& devices)
{
    const auto wanted = comparableUdid(text);
    std::optional<ListedDevice> found;
    std::string candidates;
    std::size_t count = 0;
    for (const ListedDevice& device : devices) {
        const auto udid = comparableUdid(device.udid);
        if (wanted.empty() || !udid.starts_with(wanted))
            continue;
        if (udid == wanted)
            return std::optional(device);
        found = device;
        candidates += device.udid + "\n";
        ++count;
    }
    if (count > 1)
        return ambiguous(text, candidates);
    return found;
}

bool isName(std::string_view text, std::string_view name)
{
    return comparableName(name) == comparableName(text);
}

Result<std::optional<ListedDevice>> selectByName(
    std::string_view text, const std::vector<NamedDevice>& devices)
{
    std::optional<ListedDevice> found;
    std::string candidates;
    std::size_t count = 0;
    for (const auto& [device, name] : devices) {
        if (!isName(text, name))
            continue;
        found = device;
        candidates.append(device.udid).append("  ").append(name) += '\n';
        ++count;
    }
    if (count > 1)
        return ambiguous(text, candidates);
    return found;
}

} // namespace tdw::cli
