#pragma once

#include "EndToEnd/SimulatedDevices.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Support/TDWErrorHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

/// The tests of the device servers are tables. Every row brings a device of its own, so that no
/// situation leaves anything behind for the next one.

/// What a device has where its row says nothing else.
inline constexpr const char* kUsualAddress = "02:00:5e:20:00:99";
inline constexpr std::pair<const char*, const char*> kUsualMembers[] = {
    { R"("battery")", R"({"BatteryCurrentCapacity": 80})" },
    { R"("wireless")", R"({"EnableWifiConnections": true, "WirelessBuddyID": "buddy"})" },
};

// Some failures have other numbers in releases of the device library from the one on that knows
// several subscribers.
inline constexpr bool kIsLaterLibrary = TIDEWELL_HAS_EVENTS_SUBSCRIBE != 0;
inline constexpr int kReadAtTheEnd = kIsLaterLibrary ? -256 : -5;
inline constexpr int kNoPairRecord = kIsLaterLibrary ? -2 : -21;

/// What becomes of a handshake that a release of the library tries again and again.
inline tdw::Error serverTimeout()
{
    return TDWErrorCreateWithMessage("Server timeout.", 1);
}

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

/// Calls `check` for each row, with simulated devices that `row.device` describes: JSON members
/// beside the UDID.
template <typename Row>
void forEachRow(const std::vector<Row>& rows, const auto& check)
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
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].situation);
        check(devices, rows[i], i);
    }
}

inline tdw::Value identity(std::size_t row, std::string_view address = kUsualAddress)
{
    return tdw::Dictionary { { kTDWDeviceIdentifierUDID, udidOf(row) },
        { kTDWDeviceIdentifierBluetoothAddress, address } };
}
