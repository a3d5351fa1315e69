#include "Text/CompanionTable.h"

#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWDeviceList.h"

#include <string_view>

namespace tdw::cli {

namespace {

std::string text(const Value& entry, std::string_view key)
{
    const std::string* string = entry.stringAt(key);
    return string ? *string : std::string();
}

Value battery(const Value& entry)
{
    const Value* value = entry.find(kTDWDeviceInfoBattery);
    return value ? *value : Value(Dictionary());
}

} // namespace

std::string companionTable(const Array& entries, Glyphs glyphs, ColourMode colours)
{
    // The lines are longer than some terminals, so what matters most comes first.
    Table table({ "NAME", "MODEL", "SOFTWARE", "BATTERY", "WATCH" });
    for (const Value& entry : entries)
        table.addRow(
            { { text(entry, kTDWDeviceInfoDeviceName) }, { text(entry, kTDWDeviceInfoProductType) },
                { text(entry, kTDWDeviceInfoProductName) + " "
                    + text(entry, kTDWDeviceInfoProductVersion) },
                batteryBar(battery(entry), glyphs), { text(entry, kTDWDeviceListItemUDID) } });
    return table.text(colours);
}

std::string companionBatteryTable(const Array& entries, Glyphs glyphs, ColourMode colours)
{
    Table table({ "WATCH", "BATTERY", "POWER" });
    for (const Value& entry : entries)
        table.addRow({ { text(entry, kTDWDeviceListItemUDID) }, batteryBar(battery(entry), glyphs),
            { batteryState(battery(entry)) } });
    return table.text(colours);
}

} // namespace tdw::cli
