/** Tables of text for a terminal. */
#pragma once

#include <string>
#include <vector>

namespace tovrelctl {

/** Columns as wide as their widest text, two blanks between them. */
class Table {
public:
    explicit Table(std::vector<std::string> headings);

    /** A row with as many texts as there are headings. */
    void add(std::vector<std::string> row);

    /** All rows below the headings, each line ended; what is not printable is shown as "?". */
    [[nodiscard]] std::string text() const;

private:
    std::vector<std::vector<std::string>> rows;
};

/** A text as it may be written to a terminal: control characters become "?". */
std::string printable(const std::string &text);

} // namespace tovrelctl
