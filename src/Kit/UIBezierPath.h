#pragma once

#include "Kit/Color.h"
#include "Platform/Geometry.h"

#include <cairo.h>

#include <cstddef>
#include <vector>

namespace tarvik {

// How a stroke meets what is already drawn: over it, or clearing it to transparent.
enum class CGBlendMode { Normal = 0, Clear = 16 };

// A vector path of moves, lines, quadratic curves and arcs, with a line width, stroked into a
// Cairo context. Caps and joins are butt and mitre, as the platform's paths start with.
class UIBezierPath {
  public:
    void moveToPoint(Point point);
    void addLineToPoint(Point point);
    void addQuadCurveToPoint(Point end, Point control);
    // An arc from `startAngle` to `endAngle` (radians) about `center`; a line joins the current
    // point, if any, to its start. Clockwise runs the way positive angles turn on a y-down
    // screen.
    void addArcWithCenter(Point center, double radius, double startAngle, double endAngle,
                          bool clockwise);
    void removeAllPoints();
    bool isEmpty() const { return elements_.empty(); }

    double lineWidth() const { return lineWidth_; }
    void setLineWidth(double width) { lineWidth_ = width; }

    // Strokes the path in `color` with its line width, over what is there or clearing it.
    void stroke(cairo_t* context, const Color& color, CGBlendMode mode = CGBlendMode::Normal) const;
    // The area that stroking the path's last `count` elements covers, from where the element
    // before them ends (the whole path when it has no more). A path grown by one curve looks
    // different only within its last two: the new curve and its join with the one before.
    Rect strokeBoundsOfLast(std::size_t count) const;
    Rect strokeBounds() const { return strokeBoundsOfLast(elements_.size()); }

  private:
    enum class Kind { Move, Line, Quad, Arc };
    struct Element {
        Kind kind;
        Point point;    // the end point (the centre of an arc)
        Point control;  // a quadratic curve's control point
        double radius = 0, startAngle = 0, endAngle = 0;
        bool clockwise = true;
    };
    void addTo(cairo_t* context) const;
    static void addElement(cairo_t* context, const Element& element);
    static Point endPoint(const Element& element);
    void setStrokeStyle(cairo_t* context) const;

    std::vector<Element> elements_;
    double lineWidth_ = 1;
};

}  // namespace tarvik
