#pragma once

#include "Platform/Geometry.h"

namespace tarvik {

// Distances inward from each edge of a rectangle, in points.
struct UIEdgeInsets {
    double top = 0;
    double left = 0;
    double bottom = 0;
    double right = 0;
    bool operator==(const UIEdgeInsets&) const = default;
};

inline Rect UIEdgeInsetsInsetRect(Rect rect, UIEdgeInsets insets) {
    return {{rect.origin.x + insets.left, rect.origin.y + insets.top},
            {rect.size.width - insets.left - insets.right,
             rect.size.height - insets.top - insets.bottom}};
}

}  // namespace tarvik
