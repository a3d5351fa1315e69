#pragma once

#include "Platform/Values/Error.h"
#include "Platform/Values/Value.h"
#include "Terminal/Colour.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// How a check came out. A warning needs an action of the user or costs comfort only; a
/// failure keeps something from working.
enum class Health { Ok, Warning, Failure };

/// What one check has found.
struct Finding {
    /// The check's name for programs, such as "multiplexer"; the title that is shown comes from it.
    std::string_view check;
    Health health = Health::Ok;
    /// The one line that is shown.
    std::string text {};
    /// The one thing that mends it; empty where nothing is to be done.
    std::string remedy {};
    /// The UDID of the device that it is about; empty: the computer.
    std::string device {};
    /// What failed, where an error says so.
    std::optional<Error> error {};
    /// What else programs may want, by its name.
    Dictionary details {};
};

using Findings = std::vector<Finding>;

/// The worst of all.
Health healthOf(const Findings& findings);
std::size_t count(const Findings& findings, Health health);

/// A line for each finding, and one more for what mends it; devices after the computer, each below
/// a heading.
std::string findingsText(const Findings& findings, ColourMode colours);

/// The same for programs: `Status` ("ok", "warning", "failure") and `Checks`.
Value findingsAnswer(const Findings& findings);

} // namespace tdw::cli
