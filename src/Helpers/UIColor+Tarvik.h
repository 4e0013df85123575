#pragma once

#include "Kit/Color.h"

// The reporter's fixed palette. Every colour the reporter shows, apart from plain white and
// the canvas's first black, comes from here. All are opaque; the values are deliberate.
namespace tarvik {

// Placeholders and the "optional" label: (150, 160, 174).
Color tarvik_placeholderTextColor();
// Body text, navigation-bar titles, the overlays' veil and the reporter window: (57, 63, 71).
Color tarvik_darkTextColor();
// Borders of the screenshot and its thumbnail: (238, 238, 238).
Color tarvik_screenshotBorderColor();
// Tool-bar borders, cell and card separators: (206, 211, 217).
Color tarvik_drawContainerBorderColor();
// The pens. Blue is also the accent colour. The three share 230 and 46/58 in rotated
// places; the "black" pen is the dark text colour, not pure black.
Color tarvik_drawBlueColor();   // (61, 46, 230)
Color tarvik_drawGreenColor();  // (46, 230, 58)
Color tarvik_drawRedColor();    // (230, 58, 46)
Color tarvik_drawBlackColor();  // (57, 63, 71)

}  // namespace tarvik
