#pragma once

#include "Kit/Color.h"
#include "Platform/Geometry.h"
#include "Platform/Image.h"

#include <optional>

// The reporter's image operations. Each draws into a new transparent bitmap at the main
// screen's scale (whatever the scale of its inputs) and never changes its inputs. An absent
// image argument draws nothing, the way a missing drawing leaves the screenshot alone. The
// result is none only when no bitmap of the result's size can be made.
namespace tarvik {

// A 1 × 1 point image filled with `color`, to stretch as a bar's background.
std::optional<Image> tarvik_imageWithColor(const Color& color);
// A `radius` × `radius` point image holding a filled ellipse in `color` inscribed in it, with
// transparent corners. Despite its name, `radius` is the disc's diameter: 24 makes a disc 24
// points across.
std::optional<Image> tarvik_circleImageWithColor(const Color& color, double radius);
// An image of `image`'s size: `image` drawn at (0, 0), then `other` at (0, 0) over it, neither
// scaled nor centred. Lays the tick over the chosen colour's disc.
std::optional<Image> tarvik_addImage(const Image& image, const std::optional<Image>& other);
// `image` itself (the same pixels, shared) when it already has exactly `size`; otherwise a
// new image of `size` with `image` stretched over all of it, aspect ratio not kept.
std::optional<Image> tarvik_ScaleToSize(const Image& image, Size size);
// A canvas as wide as the wider and as high as the higher of the two. `image` is drawn first,
// `other` over it, each centred at whole-point offsets: round((W - w) / 2), round((H - h) / 2),
// halves rounded away from zero.
std::optional<Image> tarvik_ImageByCombiningWithImage(const Image& image,
                                                      const std::optional<Image>& other);
// `other` stretched to `image`'s size and laid exactly over it: burns the drawing into the
// screenshot. Without a drawing the result is a fresh copy of the screenshot.
std::optional<Image> tarvik_ImageByScalingAndCombiningImage(const Image& image,
                                                            const std::optional<Image>& other);

}  // namespace tarvik
