#include "Helpers/UIColor+Tarvik.h"

namespace tarvik {

namespace {

// The palette is written in 8-bit components.
Color opaque(int red, int green, int blue) {
    return Color::colorWithRed(red / 255.0, green / 255.0, blue / 255.0, 1.0);
}

}  // namespace

Color tarvik_placeholderTextColor() {
    return opaque(150, 160, 174);
}

Color tarvik_darkTextColor() {
    return opaque(57, 63, 71);
}

Color tarvik_screenshotBorderColor() {
    return opaque(238, 238, 238);
}

Color tarvik_drawContainerBorderColor() {
    return opaque(206, 211, 217);
}

Color tarvik_drawBlueColor() {
    return opaque(61, 46, 230);
}

Color tarvik_drawGreenColor() {
    return opaque(46, 230, 58);
}

Color tarvik_drawRedColor() {
    return opaque(230, 58, 46);
}

Color tarvik_drawBlackColor() {
    return tarvik_darkTextColor();
}

}  // namespace tarvik
