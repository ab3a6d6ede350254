#include "tovrelctl/table.h"

#include "tovrelctl/printable.h"

#include <glib.h>

#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>

namespace tovrelctl {

namespace {

constexpr std::size_t GAP = 2;
/** A column is not made narrower than this. */
constexpr std::size_t LEAST_WIDTH = 13;
constexpr std::string_view CUT = "...";

/** Columns of a terminal that the character takes. */
std::size_t widthOf(gunichar character)
{
    if (g_unichar_iszerowidth(character)) {
        return 0;
    }
    return g_unichar_iswide(character) ? 2 : 1;
}

std::size_t widthOf(const std::string &text)
{
    std::size_t width = 0;
    for (const char *at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        width += widthOf(g_utf8_get_char(at));
    }
    return width;
}

/** The text, cut where it is wider than its column. */
std::string fitted(const std::string &text, std::size_t column)
{
    if (widthOf(text) <= column) {
        return text;
    }
    std::size_t width = CUT.size();
    const char *at = text.c_str();
    for (; *at != '\0'; at = g_utf8_next_char(at)) {
        width += widthOf(g_utf8_get_char(at));
        if (width > column) {
            break;
        }
    }
    return text.substr(0, static_cast<std::size_t>(at - text.c_str())).append(CUT);
}

} // namespace

Table::Table(std::vector<std::string> headings)
{
    rows.push_back(std::move(headings));
}

void Table::add(std::vector<std::string> row)
{
    for (std::string &text : row) {
        text = printable(text);
    }
    rows.push_back(std::move(row));
}

std::vector<std::size_t> Table::columnWidths(std::size_t limit) const
{
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto &row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], widthOf(row[column]));
        }
    }
    std::size_t total = std::accumulate(widths.begin(), widths.end(), GAP * (widths.size() - 1));
    for (; total > limit; --total) {
        const auto widest = std::ranges::max_element(widths);
        if (*widest <= LEAST_WIDTH) {
            break;
        }
        --*widest;
    }
    return widths;
}

std::string Table::text(std::size_t limit) const
{
    const std::vector<std::size_t> widths = columnWidths(limit);
    std::string all;
    for (const auto &row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::string text = fitted(row[column], widths[column]);
            line += text;
            line.append(widths[column] - widthOf(text) + GAP, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        all += line + '\n';
    }
    return all;
}

} // namespace tovrelctl
