#include "Kit/UIBezierPath.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace tarvik {

void UIBezierPath::moveToPoint(Point point) {
    elements_.push_back({Kind::Move, point, {}});
}

void UIBezierPath::addLineToPoint(Point point) {
    elements_.push_back({Kind::Line, point, {}});
}

void UIBezierPath::addQuadCurveToPoint(Point end, Point control) {
    elements_.push_back({Kind::Quad, end, control});
}

void UIBezierPath::addArcWithCenter(Point center, double radius, double startAngle, double endAngle,
                                    bool clockwise) {
    elements_.push_back({Kind::Arc, center, {}, radius, startAngle, endAngle, clockwise});
}

void UIBezierPath::removeAllPoints() {
    elements_.clear();
}

void UIBezierPath::addTo(cairo_t* context) const {
    cairo_new_path(context);
    for (const Element& element : elements_) {
        addElement(context, element);
    }
}

void UIBezierPath::addElement(cairo_t* context, const Element& element) {
    switch (element.kind) {
        case Kind::Move:
            cairo_move_to(context, element.point.x, element.point.y);
            break;
        case Kind::Line:
            cairo_line_to(context, element.point.x, element.point.y);
            break;
        case Kind::Quad: {
            // Cairo draws cubic curves; a quadratic one is the cubic whose control points lie
            // two thirds of the way from each end to the quadratic's control point.
            double x0 = 0, y0 = 0;
            cairo_get_current_point(context, &x0, &y0);
            Point c = element.control;
            Point end = element.point;
            cairo_curve_to(context, x0 + 2.0 / 3 * (c.x - x0), y0 + 2.0 / 3 * (c.y - y0),
                           end.x + 2.0 / 3 * (c.x - end.x), end.y + 2.0 / 3 * (c.y - end.y), end.x,
                           end.y);
            break;
        }
        case Kind::Arc:
            (element.clockwise ? cairo_arc : cairo_arc_negative)(
                context, element.point.x, element.point.y, element.radius, element.startAngle,
                element.endAngle);
            break;
    }
}

Point UIBezierPath::endPoint(const Element& element) {
    if (element.kind != Kind::Arc) {
        return element.point;
    }
    return {element.point.x + element.radius * std::cos(element.endAngle),
            element.point.y + element.radius * std::sin(element.endAngle)};
}

void UIBezierPath::setStrokeStyle(cairo_t* context) const {
    cairo_set_line_width(context, lineWidth_);
    cairo_set_line_cap(context, CAIRO_LINE_CAP_BUTT);
    cairo_set_line_join(context, CAIRO_LINE_JOIN_MITER);
}

Rect UIBezierPath::strokeBoundsOfLast(std::size_t count) const {
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> scratch(
        cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1), cairo_surface_destroy);
    std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context(cairo_create(scratch.get()),
                                                               cairo_destroy);
    std::size_t first = elements_.size() - std::min(count, elements_.size());
    if (first > 0) {
        Point start = endPoint(elements_[first - 1]);
        cairo_move_to(context.get(), start.x, start.y);
    }
    for (std::size_t i = first; i < elements_.size(); ++i) {
        addElement(context.get(), elements_[i]);
    }
    setStrokeStyle(context.get());
    double left, top, right, bottom;
    cairo_stroke_extents(context.get(), &left, &top, &right, &bottom);
    // A point more all round: the screen flattens curves at its own finer tolerance.
    return {{left - 1, top - 1}, {right - left + 2, bottom - top + 2}};
}

void UIBezierPath::stroke(cairo_t* context, const Color& color, CGBlendMode mode) const {
    cairo_save(context);
    addTo(context);
    setStrokeStyle(context);
    if (mode == CGBlendMode::Clear) {
        // Taking away all of what lies under an opaque stroke is clearing it. Cairo 1.16's
        // own CLEAR leaves axis-aligned strokes undrawn at whole-number scales.
        cairo_set_source_rgba(context, 0, 0, 0, 1);
        cairo_set_operator(context, CAIRO_OPERATOR_DEST_OUT);
    } else {
        color.setAsSourceIn(context);
        cairo_set_operator(context, CAIRO_OPERATOR_OVER);
    }
    cairo_stroke(context);
    cairo_restore(context);
}

}  // namespace tarvik
