#include "Kit/Color.h"

namespace tarvik {

void Color::setAsSourceIn(cairo_t* context) const {
    cairo_set_source_rgba(context, components_.red, components_.green, components_.blue,
                          components_.alpha);
}

bool Color::operator==(const Color& other) const {
    return components_.red == other.components_.red &&
           components_.green == other.components_.green &&
           components_.blue == other.components_.blue &&
           components_.alpha == other.components_.alpha;
}

}  // namespace tarvik
