#include "Output/WatchTable.h"

#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWDeviceList.h"

#include <string_view>

namespace tdw::cli {

namespace {

std::string text(const Value& entry, std::string_view key)
{
    const Dictionary* fields = entry.asDictionary();
    const Value* value = fields ? fields->find(key) : nullptr;
    const std::string* string = value ? value->asString() : nullptr;
    return string ? *string : std::string();
}

Value battery(const Value& entry)
{
    const Dictionary* fields = entry.asDictionary();
    const Value* value = fields ? fields->find(kTDWDeviceInfoBattery) : nullptr;
    return value ? *value : Value(Dictionary());
}

} // namespace

std::string watchTable(const Array& entries, Glyphs glyphs, ColourMode colours)
{
    // What says most comes first, for the lines are longer than some terminals.
    Table table({ "NAME", "MODEL", "SOFTWARE", "BATTERY", "WATCH" });
    for (const Value& entry : entries)
        table.addRow(
            { { text(entry, kTDWDeviceInfoDeviceName) }, { text(entry, kTDWDeviceInfoProductType) },
                { text(entry, kTDWDeviceInfoProductName) + " "
                    + text(entry, kTDWDeviceInfoProductVersion) },
                batteryBar(battery(entry), glyphs), { text(entry, kTDWDeviceListItemUDID) } });
    return table.text(colours);
}

std::string watchBatteryTable(const Array& entries, Glyphs glyphs, ColourMode colours)
{
    Table table({ "WATCH", "BATTERY", "POWER" });
    for (const Value& entry : entries)
        table.addRow({ { text(entry, kTDWDeviceListItemUDID) }, batteryBar(battery(entry), glyphs),
            { batteryState(battery(entry)) } });
    return table.text(colours);
}

} // namespace tdw::cli
