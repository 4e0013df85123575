#pragma once

#include "Kit/NSAttributedString.h"
#include "Platform/Geometry.h"

#include <cairo.h>

#include <memory>

using PangoLayout = struct _PangoLayout;

namespace tarvik {

// What text falls back to where its attributes say nothing, and how it is set.
struct TextStyle {
    UIFont font = UIFont::systemFontOfSize(17);
    Color color = Color::colorWithRed(0, 0, 0, 1);
    NSTextAlignment alignment = NSTextAlignment::Natural;
    // Lines at most (0: no limit); text beyond the last line ends in an ellipsis.
    int numberOfLines = 0;
};

// Attributed text set into lines with Pango, in points. Glyph positions are neither hinted nor
// rounded, so the layout is the same at every scale and on every machine with the same fonts.
class TextLayout {
  public:
    // `width` wraps the text into lines of at most that many points (none when not positive);
    // `height`, when positive, keeps only the lines that fit (the last ends in an ellipsis),
    // and at least the first line, in one paragraph or several.
    TextLayout(const NSAttributedString& text, const TextStyle& style, double width,
               double height = 0);
    ~TextLayout();
    TextLayout(const TextLayout&) = delete;
    TextLayout& operator=(const TextLayout&) = delete;

    // The size the lines take: the widest line's width and the lines' height.
    Size size() const;
    int lineCount() const;
    // Draws the lines with their top left corner at `origin`.
    void draw(cairo_t* context, Point origin) const;
    // The caret before UTF-16 index `index`, relative to the layout's top left corner: zero
    // width, a line high.
    Rect caretRectForIndex(std::size_t index) const;
    // The UTF-16 index of the insertion point nearest to `point` (relative to the top left
    // corner), as a tap there places it.
    std::size_t indexAtPoint(Point point) const;

  private:
    // Keeps the lines of several paragraphs that fit in `height`.
    void keepParagraphsWithin(double height);

    std::string text_;
    Color color_;
    PangoLayout* layout_;
};

// Font metrics in points: ascent above the baseline, descent below it (positive), both from
// the resolved face.
struct FontMetrics {
    double ascent;
    double descent;
};
FontMetrics metricsOfFont(const UIFont& font);

// The family of the face fontconfig actually loads for `font`: its own family when installed,
// a fallback otherwise.
std::string loadedFamilyOfFont(const UIFont& font);

}  // namespace tarvik
