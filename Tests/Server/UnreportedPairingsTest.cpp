#include "Server/UnreportedPairings.h"

#include "Support/Testing.h"

using namespace tdw;

TEST(UnreportedPairings, EachPairingIsToldOnce)
{
    // An event; or "+" and "-" for a look that finds a record or none, "~" for one that an event
    // overtakes.
    const struct {
        const char* situation;
        std::vector<std::string> happens;
        std::string told;
    } rows[] = {
        { "paired before it came", { "1,1,a", "+", "+" }, "1,1,a " },
        { "paired, and nothing reports it", { "1,2,a", "-", "-", "+", "+" }, "1,2,a 3,2,a " },
        { "reported", { "1,1,a", "-", "3,1,a", "+" }, "1,1,a 3,1,a " },
        { "reported while a look is under way", { "1,1,a", "-", "~", "3,1,a", "-", "+" },
            "1,1,a 3,1,a " },
        { "reported after the record was found", { "1,1,a", "-", "+", "3,1,a", "3,1,a" },
            "1,1,a 3,1,a 3,1,a " },
        { "left at the tap", { "1,1,a", "-", "2,1,a", "1,1,a", "+" }, "1,1,a 2,1,a 1,1,a 3,1,a " },
        { "left at the tap, and reported", { "1,1,a", "-", "3,1,a", "2,1,a", "1,1,a", "+" },
            "1,1,a 3,1,a 2,1,a 1,1,a " },
        { "by two ways", { "1,1,a", "1,2,a", "2,1,a", "-", "+" }, "1,1,a 1,2,a 2,1,a 3,2,a " },
        { "gone in the middle of a look", { "1,1,a", "-", "~", "2,1,a", "+" }, "1,1,a 2,1,a " },
    };
    for (const auto& row : rows) {
        UnreportedPairings pairings;
        std::string told;
        std::vector<UnreportedPairings::Look> begun;
        for (const std::string& what : row.happens) {
            if (what == "~") {
                begun = pairings.looks();
            } else if (const auto event = parseDeviceEvent(what)) {
                told += pairings.received(*event) ? what + " " : "";
            } else {
                const auto looks = std::exchange(begun, {});
                for (const auto& look : looks.empty() ? pairings.looks() : looks) {
                    if (const auto found = pairings.looked(look, what == "+"))
                        told += deviceEventText(*found) + " ";
                }
            }
        }
        EXPECT_EQ(told, row.told) << row.situation;
    }
}
