#include "tovrelctl/table.h"

#include <glib.h>

#include <algorithm>
#include <utility>

namespace tovrelctl {

namespace {

constexpr std::size_t GAP = 2;

/** Places on a terminal. */
std::size_t widthOf(const std::string &text)
{
    std::size_t width = 0;
    for (const char *at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar character = g_utf8_get_char(at);
        if (!g_unichar_iszerowidth(character)) {
            width += g_unichar_iswide(character) ? 2 : 1;
        }
    }
    return width;
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

std::string Table::text() const
{
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto &row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], widthOf(row[column]));
        }
    }
    std::string all;
    for (const auto &row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            all += row[column];
            if (column + 1 < row.size()) {
                all.append(widths[column] - widthOf(row[column]) + GAP, ' ');
            }
        }
        all += '\n';
    }
    return all;
}

std::string printable(const std::string &text)
{
    std::string result;
    for (const char *at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        if (g_unichar_isprint(g_utf8_get_char(at))) {
            result.append(at, static_cast<std::size_t>(g_utf8_next_char(at) - at));
        } else {
            result += '?';
        }
    }
    return result;
}

} // namespace tovrelctl
