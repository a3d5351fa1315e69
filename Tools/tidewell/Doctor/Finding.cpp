#include "Doctor/Finding.h"

#include "Interfaces/TDWResponse.h"
#include "Terminal/Table.h"

#include <algorithm>
#include <iterator>

namespace tdw::cli {

namespace {

struct Title {
    std::string_view check;
    std::string_view title;
};

constexpr Title kTitles[] = {
    { "clock", "Clock" },
    { "libraries", "Device libraries" },
    { "servers", "Servers" },
    { "daemon", "usbmuxd" },
    { "multiplexer", "Multiplexer" },
    { "bus", "USB bus" },
    { "service", "Service" },
    { "service-multiplexer", "Its multiplexer" },
    { "reachable", "Reachable" },
    { "record", "Pairing record" },
    { "trust", "Trust" },
    { "lock", "Lock" },
    { "first-unlock", "First unlock" },
    { "lost-mode", "Lost mode" },
    { "managed", "Management" },
    { "values", "Values" },
    { "times", "Times" },
};

std::string_view titleOf(std::string_view check)
{
    const auto* const found = std::ranges::find(kTitles, check, &Title::check);
    return found == std::end(kTitles) ? check : found->title;
}

struct Look {
    const char* word;
    Colour colour;
};

Look lookOf(Health health)
{
    switch (health) {
    case Health::Ok:
        return { "ok", Colour::Green };
    case Health::Warning:
        return { "warning", Colour::Magenta };
    case Health::Failure:
        return { "failure", Colour::Red };
    }
    return {};
}

} // namespace

Health healthOf(const Findings& findings)
{
    Health worst = Health::Ok;
    for (const Finding& finding : findings)
        worst = std::max(worst, finding.health);
    return worst;
}

std::size_t count(const Findings& findings, Health health)
{
    return static_cast<std::size_t>(std::ranges::count(
        findings, health, [](const Finding& finding) { return finding.health; }));
}

std::string findingsText(const Findings& findings, ColourMode colours)
{
    Table table;
    std::string device;
    for (const Finding& finding : findings) {
        if (finding.device != device) {
            device = finding.device;
            table.addRow({ { "" } });
            table.addRow({ { "" }, { "Device", Colour::Bold }, { device, Colour::Bold } });
        }
        const Look look = lookOf(finding.health);
        table.addRow({ { look.word, look.colour }, { std::string(titleOf(finding.check)) },
            { finding.text } });
        if (!finding.remedy.empty())
            table.addRow({ { "" }, { "" }, { "-> " + finding.remedy, Colour::Bold } });
    }
    return table.text(colours);
}

Value findingsAnswer(const Findings& findings)
{
    Array checks;
    for (const Finding& finding : findings) {
        Dictionary entry { { "Check", finding.check } };
        if (!finding.device.empty())
            entry.set("Device", finding.device);
        entry.set("Status", lookOf(finding.health).word);
        entry.set("Finding", finding.text);
        if (!finding.remedy.empty())
            entry.set("Remedy", finding.remedy);
        if (finding.error)
            entry.set("Error", TDWCreateErrorResponseDictionary(*finding.error));
        for (const auto& [key, value] : finding.details)
            entry.set(key, value);
        checks.emplace_back(std::move(entry));
    }
    return Dictionary { { "Status", lookOf(healthOf(findings)).word },
        { "Checks", std::move(checks) } };
}

} // namespace tdw::cli
