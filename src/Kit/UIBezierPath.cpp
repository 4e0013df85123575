#include "Kit/UIBezierPath.h"

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
        switch (element.kind) {
            case Kind::Move:
                cairo_move_to(context, element.point.x, element.point.y);
                break;
            case Kind::Line:
                cairo_line_to(context, element.point.x, element.point.y);
                break;
            case Kind::Quad: {
                // Cairo draws cubic curves; a quadratic one is the cubic whose control points
                // lie two thirds of the way from each end to the quadratic's control point.
                double x0 = 0, y0 = 0;
                cairo_get_current_point(context, &x0, &y0);
                Point c = element.control;
                Point end = element.point;
                cairo_curve_to(context, x0 + 2.0 / 3 * (c.x - x0), y0 + 2.0 / 3 * (c.y - y0),
                               end.x + 2.0 / 3 * (c.x - end.x), end.y + 2.0 / 3 * (c.y - end.y),
                               end.x, end.y);
                break;
            }
            case Kind::Arc:
                (element.clockwise ? cairo_arc : cairo_arc_negative)(
                    context, element.point.x, element.point.y, element.radius, element.startAngle,
                    element.endAngle);
                break;
        }
    }
}

void UIBezierPath::stroke(cairo_t* context, const Color& color, CGBlendMode mode) const {
    cairo_save(context);
    addTo(context);
    cairo_set_line_width(context, lineWidth_);
    cairo_set_line_cap(context, CAIRO_LINE_CAP_BUTT);
    cairo_set_line_join(context, CAIRO_LINE_JOIN_MITER);
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
