#include "Commands/Commands.h"
#include "Devices/DeviceLookup.h"
#include "Platform/Values/Utf8.h"
#include "Text/ErrorText.h"
#include "Text/Json.h"

namespace tdw::cli {

Result<std::uint64_t> connectionTypeFor(const CommandContext& context, const ListedDevice& device)
{
    const std::string* choice = context.arguments.valueOf("--connection");
    if (!choice || *choice == "any")
        return std::uint64_t { 0 };
    const auto type = *choice == "usb" ? ConnectionType::Usb : ConnectionType::Network;
    if (!device.isReachedBy(type))
        return notReachableBy(type, device);
    return static_cast<std::uint64_t>(type);
}

Result<void> reportDone(
    const CommandContext& context, const Value& answer, const std::string& sentence)
{
    if (context.arguments.has("--json"))
        return context.console.print(jsonLine(answer));
    return context.console.print(withControlCharactersEscaped(sentence) + "\n");
}

void warn(const CommandContext& context, const Error& warning)
{
    context.console.say(warningText(
        warning, { context.console.errorColours(), detailOf(context.arguments.has("--verbose")) }));
}

} // namespace tdw::cli
