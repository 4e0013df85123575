#pragma once

#include "Platform/Geometry.h"

#include <cmath>

namespace tarvik {

// A 2-D affine transform, the matrix [a b 0; c d 0; tx ty 1] applied to row vectors: a point
// (x, y) becomes (a x + c y + tx, b x + d y + ty). Views use it for rotation about their centre.
struct AffineTransform {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;

    static AffineTransform identity() { return {}; }
    // A rotation by `angle` radians; positive angles turn clockwise on a y-down screen.
    static AffineTransform rotation(double angle) {
        return {std::cos(angle), std::sin(angle), -std::sin(angle), std::cos(angle), 0, 0};
    }

    bool isIdentity() const { return *this == AffineTransform{}; }
    Point apply(Point p) const { return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty}; }
    // The inverse; a transform that cannot be inverted (determinant 0) gives itself back.
    AffineTransform inverted() const {
        double determinant = a * d - b * c;
        if (determinant == 0) {
            return *this;
        }
        return {d / determinant,
                -b / determinant,
                -c / determinant,
                a / determinant,
                (c * ty - d * tx) / determinant,
                (b * tx - a * ty) / determinant};
    }

    bool operator==(const AffineTransform&) const = default;
};

}  // namespace tarvik
