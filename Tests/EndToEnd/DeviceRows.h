#pragma once

#include "EndToEnd/SimulatedDevices.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/TDWErrorKinds.h"
#include "Support/Testing.h"

/// The tests of the device servers are tables. Every row brings a device of its own, so that no
/// situation leaves anything behind for the next one.

/// What a device has where its row says nothing else.
inline constexpr const char* kUsualAddress = "02:00:5e:20:00:99";
inline constexpr std::pair<const char*, const char*> kUsualMembers[] = {
    { R"("battery")", R"({"BatteryCurrentCapacity": 80})" },
    { R"("wireless")", R"({"EnableWifiConnections": true, "WirelessBuddyID": "buddy"})" },
};

// Some failures have other numbers in Debian 12's device library than in later ones.
inline constexpr bool kIsDebian12 = TIDEWELL_DEVICE_LIBRARY_GENERATION == 12;
inline constexpr int kReadAtTheEnd = kIsDebian12 ? -5 : -256;
inline constexpr int kRegistryAtTheEnd = kIsDebian12 ? -4 : -256;
inline constexpr int kNoPairRecord = kIsDebian12 ? -21 : -2;
inline constexpr int kUnknownOverTheNetwork = kIsDebian12 ? -13 : -2;

inline std::string udidOf(std::size_t row)
{
    const std::string number = std::to_string(row);
    return "f1d0" + std::string(36 - number.size(), '0') + number;
}

/// The JSON members of a device that fails; further members of the fault say how and when.
inline std::string faulty(const std::string& fault, const std::string& at = "lockdown")
{
    return R"("faults": [{"at": ")" + at + R"(", "fault": )" + fault + "}]";
}

enum class Order { InTurn, AtOnce };

/// Calls `check` for each row, with simulated devices that `row.device` describes: JSON members
/// beside the UDID.
/// @param order `AtOnce` for rows that take their time, each on a thread of its own
template <typename Row>
void forEachRow(const std::vector<Row>& rows, const auto& check, Order order = Order::InTurn)
{
    std::string scenario;
    for (const Row& row : rows) {
        const auto index = static_cast<std::size_t>(&row - rows.data());
        scenario += std::string(index == 0 ? "" : ",") + R"({"udid":")" + udidOf(index) + '"';
        scenario += (row.device.empty() ? "" : ",") + row.device;
        for (const auto& [name, value] : kUsualMembers)
            scenario += row.device.find(name) == row.device.npos
                ? "," + std::string(name) + ":" + value
                : "";
        scenario += "}";
    }
    const SimulatedDevices devices(R"({"devices":[)" + scenario + "]}");
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto checkRow = [&, i] {
            SCOPED_TRACE(rows[i].situation);
            check(devices, rows[i], i);
        };
        if (order == Order::AtOnce)
            threads.emplace_back(checkRow);
        else
            checkRow();
    }
    threads.clear();
}

inline tdw::Value identity(std::size_t row, std::string_view address = kUsualAddress)
{
    return tdw::Dictionary { { kTDWDeviceIdentifierUDID, udidOf(row) },
        { kTDWDeviceIdentifierBluetoothAddress, address } };
}
