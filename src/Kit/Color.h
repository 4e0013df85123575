#pragma once

#include "Platform/Image.h"

#include <cairo.h>

namespace tarvik {

// A colour of the toolkit: straight red, green, blue and alpha, each from 0 to 1, kept as
// given. Two colours are equal when all four components are.
class Color {
  public:
    static Color colorWithRed(double red, double green, double blue, double alpha) {
        return Color(ColorComponents{red, green, blue, alpha});
    }

    // The same colour with another alpha.
    Color colorWithAlphaComponent(double alpha) const {
        return colorWithRed(components_.red, components_.green, components_.blue, alpha);
    }

    ColorComponents components() const { return components_; }
    double red() const { return components_.red; }
    double green() const { return components_.green; }
    double blue() const { return components_.blue; }
    double alpha() const { return components_.alpha; }

    // Makes the colour the source that `context` fills and strokes with.
    void setAsSourceIn(cairo_t* context) const;

    bool operator==(const Color& other) const;

  private:
    explicit Color(ColorComponents components) : components_(components) {}
    ColorComponents components_;
};

}  // namespace tarvik
