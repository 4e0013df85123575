#pragma once

#include <compare>

namespace tarvik {

// A row of a table: its section and its place in the section, both from 0. Ordered section
// first, as the rows lie in the table.
struct NSIndexPath {
    long section = 0;
    long row = 0;

    static NSIndexPath indexPathForRow(long row, long section) { return {section, row}; }
    auto operator<=>(const NSIndexPath&) const = default;
};

}  // namespace tarvik
