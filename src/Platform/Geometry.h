#pragma once

namespace tarvik {

// Points, origin top left, y down. Values are kept as given: nothing here rounds them.
struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;
    // Exact comparison, as the design's size checks are: 100 and 100.0000001 differ.
    bool operator==(const Size&) const = default;
};

struct Rect {
    Point origin;
    Size size;
    bool operator==(const Rect&) const = default;
};

}  // namespace tarvik
