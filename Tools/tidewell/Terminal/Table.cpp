#include "Terminal/Table.h"

#include "Platform/Values/Utf8.h"
#include "Terminal/TextWidth.h"

#include <algorithm>
#include <utility>

namespace tdw::cli {

namespace {

constexpr std::size_t kGap = 2;

} // namespace

Table::Table(std::vector<std::string> titles)
{
    std::vector<Cell> heading;
    heading.reserve(titles.size());
    for (std::string& title : titles)
        heading.push_back({ std::move(title), Colour::Bold });
    if (!heading.empty())
        addRow(std::move(heading));
}

void Table::addRow(std::vector<Cell> cells)
{
    for (Cell& cell : cells)
        cell.text = withControlCharactersEscaped(cell.text);
    m_rows.push_back(std::move(cells));
}

std::string Table::text(ColourMode colours) const
{
    std::vector<std::size_t> widths;
    for (const auto& row : m_rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], displayWidth(row[i].text));
    }

    std::string result;
    for (const auto& row : m_rows) {
        // Blanks are owed until something follows them, so that no line ends with any.
        std::size_t owed = 0;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string& text = row[i].text;
            if (!text.empty())
                result += std::string(std::exchange(owed, 0), ' ')
                    + coloured(text, row[i].colour, colours);
            owed += widths[i] - displayWidth(text) + kGap;
        }
        result += '\n';
    }
    return result;
}

} // namespace tdw::cli
