#pragma once

#include "Terminal/Colour.h"

#include <string>
#include <vector>

namespace tdw::cli {

/// One cell: text as it came from wherever, and how to show it.
struct Cell {
    std::string text;
    Colour colour = Colour::None;
};

/// A table for a terminal, aligned by what the texts take on a terminal. Whatever is put into it is
/// made safe to show.
///
///     Table table({ "UDID", "CONNECTION" });
///     table.addRow({ { udid }, { "USB" } });
class Table {
public:
    /// No titles: a table without a heading.
    explicit Table(std::vector<std::string> titles = {});

    void addRow(std::vector<Cell> cells);

    /// The lines, each with its line end and without blanks before it.
    std::string text(ColourMode colours) const;

private:
    std::vector<std::vector<Cell>> m_rows;
};

} // namespace tdw::cli
