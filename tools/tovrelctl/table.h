/** Tables of text for people. */
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tovrelctl {

/** Columns as wide as their widest text, two blanks between them. */
class Table {
public:
    explicit Table(std::vector<std::string> headings);

    /** A row with as many texts as there are headings; they are made printable. */
    void add(std::vector<std::string> row);

    /**
     * All rows below the headings, each line ended. When lines would be longer than `limit` columns
     * of a terminal, the widest texts are cut and end with "...".
     */
    [[nodiscard]] std::string text(std::size_t limit) const;

private:
    [[nodiscard]] std::vector<std::size_t> columnWidths(std::size_t limit) const;

    std::vector<std::vector<std::string>> rows;
};

} // namespace tovrelctl
