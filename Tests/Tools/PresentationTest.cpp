#include "Interfaces/TDWResponse.h"
#include "Platform/Values/Error.h"
#include "Support/Testing.h"
#include "Terminal/Colour.h"
#include "Terminal/Encoding.h"
#include "Terminal/Table.h"
#include "Terminal/TextWidth.h"
#include "Text/Json.h"

#include <cstdint>
#include <limits>

namespace tdw::cli {

namespace {

TEST(TextWidth, CountsTheColumnsOfATerminal)
{
    EXPECT_EQ(displayWidth("plain"), 5U);
    EXPECT_EQ(displayWidth("Jürgen"), 6U);
    EXPECT_EQ(displayWidth("设备"), 4U);
    EXPECT_EQ(displayWidth("e\u0301"), 1U);
    EXPECT_EQ(displayWidth("📱"), 2U);
    EXPECT_EQ(displayWidth("a\xFF"), 2U);
}

TEST(Table, AlignsByWhatTextsTakeAndEndsNoLineWithBlanks)
{
    Table table({ "NAME", "STATE" });
    table.addRow({ { "设备" }, { "on" } });
    table.addRow({ { "x" }, { "" } });
    EXPECT_EQ(table.text(ColourMode::Off), "NAME  STATE\n设备  on\nx\n");
}

TEST(Table, DeviceTextCannotActOnTheTerminal)
{
    Table table;
    table.addRow({ { "a\x1b[31m\nb" }, { "\u202Ec", Colour::Green } });
    table.addRow({ { "\u2028\u200b\ufeff" }, { "\U000E0041" } });
    EXPECT_EQ(table.text(ColourMode::On),
        "a\\u001b[31m\\nb      \x1b[32m\\u202ec\x1b[0m\n"
        "\\u2028\\u200b\\ufeff  \\u{e0041}\n");
}

TEST(Colour, IsForTerminalsOfUsersWhoDidNotRefuse)
{
    EXPECT_TRUE(isCapableTerminal(true, "xterm"));
    EXPECT_FALSE(isCapableTerminal(true, "dumb"));
    EXPECT_FALSE(isCapableTerminal(true, nullptr));
    EXPECT_FALSE(isCapableTerminal(false, "xterm"));
    EXPECT_EQ(colourMode(true, nullptr), ColourMode::On);
    EXPECT_EQ(colourMode(true, ""), ColourMode::On);
    EXPECT_EQ(colourMode(true, "1"), ColourMode::Off);
    EXPECT_EQ(colourMode(false, nullptr), ColourMode::Off);
}

TEST(Json, HoldsEveryKindOfValue)
{
    const std::pair<Value, const char*> rows[] = {
        { Dictionary { { "b", 1 }, { "a", Array { true, -2, 0.5 } } },
            R"({"b":1,"a":[true,-2,0.5]})" },
        { (std::int64_t { 1 } << 53) - 1, "9007199254740991" },
        { std::int64_t { 1 } << 53, R"("9007199254740992")" },
        { std::numeric_limits<std::int64_t>::min(), R"("-9223372036854775808")" },
        { std::numeric_limits<std::uint64_t>::max(), R"("18446744073709551615")" },
        { Array { Data {}, Data(1), Data(2, std::byte { 0xFF }), Data(3), Data(4) },
            R"(["","AA==","//8=","AAAA","AAAAAA=="])" },
        { Data(3, std::byte { 0xFB }), R"("+/v7")" },
        { Date(std::chrono::seconds(1777636800)), R"("2026-05-01T12:00:00Z")" },
        { "ü\x9b\"\n", R"("\u00fc\ufffd\"\n")" },
        { "\u009b\u007f📱", R"("\u009b\u007f\ud83d\udcf1")" },
        { Dictionary { { "\xFF", Array {} } }, R"({"\ufffd":[]})" },
    };
    for (const auto& [value, json] : rows)
        EXPECT_EQ(jsonLine(value), std::string(json) + "\n");
}

TEST(Encoding, DatesOutsideOfTheCalendarDoNoHarm)
{
    EXPECT_EQ(iso8601(Date(std::chrono::microseconds(-1))), "1969-12-31T23:59:59.999999Z");
    EXPECT_EQ(iso8601(Date(std::chrono::days(4'000'000))), "+12921-08-18T00:00:00Z");
    EXPECT_THAT(iso8601(Date::max()), testing::EndsWith("microseconds since 1970"));
    EXPECT_THAT(iso8601(Date::min()), testing::EndsWith("microseconds since 1970"));
}

} // namespace

} // namespace tdw::cli
