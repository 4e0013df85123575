#include "Kit/UIView.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace tarvik {

namespace {

Point midpoint(Rect rect) {
    return {rect.origin.x + rect.size.width / 2, rect.origin.y + rect.size.height / 2};
}

std::array<Point, 4> corners(Rect rect) {
    double left = rect.origin.x;
    double top = rect.origin.y;
    double right = left + rect.size.width;
    double bottom = top + rect.size.height;
    return {Point{left, top}, Point{right, top}, Point{right, bottom}, Point{left, bottom}};
}

template <typename Map>
Rect boundingBox(Rect rect, Map map) {
    std::array<Point, 4> points = corners(rect);
    Point first = map(points[0]);
    double left = first.x, right = first.x, top = first.y, bottom = first.y;
    for (Point corner : points) {
        Point p = map(corner);
        left = std::min(left, p.x);
        right = std::max(right, p.x);
        top = std::min(top, p.y);
        bottom = std::max(bottom, p.y);
    }
    return {{left, top}, {right - left, bottom - top}};
}

// How one axis of a frame follows its superview's change of `delta` points: the flexible
// parts among margin before, size and margin after share the change in proportion to their
// current lengths (equally when those are all zero); fixed parts keep their length.
struct AxisLayout {
    double position;
    double length;
};

AxisLayout autoresizeAxis(AxisLayout axis, double oldSuperLength, double delta, bool flexibleBefore,
                          bool flexibleLength, bool flexibleAfter) {
    double before = axis.position;
    double after = oldSuperLength - axis.position - axis.length;
    int flexibleCount = int{flexibleBefore} + int{flexibleLength} + int{flexibleAfter};
    if (flexibleCount == 0 || delta == 0) {
        return axis;
    }
    double total = (flexibleBefore ? before : 0) + (flexibleLength ? axis.length : 0) +
                   (flexibleAfter ? after : 0);
    auto share = [&](bool flexible, double length) {
        if (!flexible) {
            return 0.0;
        }
        return total != 0 ? delta * length / total : delta / flexibleCount;
    };
    return {axis.position + share(flexibleBefore, before),
            axis.length + share(flexibleLength, axis.length)};
}

}  // namespace

Rect rectUnion(Rect a, Rect b) {
    double left = std::min(a.origin.x, b.origin.x);
    double top = std::min(a.origin.y, b.origin.y);
    double right = std::max(a.origin.x + a.size.width, b.origin.x + b.size.width);
    double bottom = std::max(a.origin.y + a.size.height, b.origin.y + b.size.height);
    return {{left, top}, {right - left, bottom - top}};
}

bool rectContainsPoint(Rect rect, Point point) {
    return point.x >= rect.origin.x && point.x < rect.origin.x + rect.size.width &&
           point.y >= rect.origin.y && point.y < rect.origin.y + rect.size.height;
}

bool rectIntersectsRect(Rect a, Rect b) {
    return a.origin.x < b.origin.x + b.size.width && b.origin.x < a.origin.x + a.size.width &&
           a.origin.y < b.origin.y + b.size.height && b.origin.y < a.origin.y + a.size.height;
}

UIView::UIView(Rect frame) : center_(midpoint(frame)), bounds_{{0, 0}, frame.size} {}

Rect UIView::frame() const {
    if (transform_.isIdentity()) {
        return {{center_.x - bounds_.size.width / 2, center_.y - bounds_.size.height / 2},
                bounds_.size};
    }
    // Without the dust of cos(pi / 2) a view turned a quarter has its frame exactly, as
    // setFrame gave it.
    const auto withoutDust = [](double value) { return std::abs(value) < 1e-12 ? 0 : value; };
    const AffineTransform turn{withoutDust(transform_.a),
                               withoutDust(transform_.b),
                               withoutDust(transform_.c),
                               withoutDust(transform_.d),
                               transform_.tx,
                               transform_.ty};
    Rect centred{{-bounds_.size.width / 2, -bounds_.size.height / 2}, bounds_.size};
    return boundingBox(centred, [&](Point p) {
        Point turned = turn.apply(p);
        return Point{center_.x + turned.x, center_.y + turned.y};
    });
}

// A turned view keeps its transform: its bounds get the size whose turned bounding box is the
// frame's size, so a window turned a quarter and given the screen's frame has the screen's
// sides swapped. A turn of 45 degrees, where no size answers, keeps the bounds' size.
void UIView::setFrame(Rect frame) {
    setCenter(midpoint(frame));
    // cos(pi / 2) is 6e-17, not 0: such dust would leave the swapped sides a hair off.
    const auto magnitude = [](double value) {
        return std::abs(value) < 1e-12 ? 0 : std::abs(value);
    };
    const double a = magnitude(transform_.a), b = magnitude(transform_.b);
    const double c = magnitude(transform_.c), d = magnitude(transform_.d);
    const double determinant = a * d - b * c;
    Size size = frame.size;
    if (!transform_.isIdentity()) {
        if (std::abs(determinant) < 1e-9) {
            size = bounds_.size;
        } else {
            size = {std::max(0.0, (frame.size.width * d - frame.size.height * c) / determinant),
                    std::max(0.0, (frame.size.height * a - frame.size.width * b) / determinant)};
        }
    }
    setBounds({bounds_.origin, size});
}

void UIView::setCenter(Point center) {
    willChange(AnimatableProperty::Center);
    center_ = center;
}

void UIView::setTransform(AffineTransform transform) {
    willChange(AnimatableProperty::Transform);
    transform_ = transform;
}

void UIView::setBounds(Rect bounds) {
    willChange(AnimatableProperty::Bounds);
    Size oldSize = bounds_.size;
    bounds_ = bounds;
    if (oldSize != bounds.size) {
        resizeSubviews(oldSize);
        setNeedsLayout();
        setNeedsDisplay();
    }
}

void UIView::resizeSubviews(Size oldSize) {
    if (!autoresizesSubviews_) {
        return;
    }
    for (const std::shared_ptr<UIView>& subview : subviews_) {
        subview->autoresize(oldSize, bounds_.size);
    }
}

void UIView::autoresize(Size oldSuperviewSize, Size newSuperviewSize) {
    std::uint32_t mask = autoresizingMask_;
    Rect current = frame();
    AxisLayout x = autoresizeAxis({current.origin.x, current.size.width}, oldSuperviewSize.width,
                                  newSuperviewSize.width - oldSuperviewSize.width,
                                  mask & UIViewAutoresizingFlexibleLeftMargin,
                                  mask & UIViewAutoresizingFlexibleWidth,
                                  mask & UIViewAutoresizingFlexibleRightMargin);
    AxisLayout y = autoresizeAxis({current.origin.y, current.size.height}, oldSuperviewSize.height,
                                  newSuperviewSize.height - oldSuperviewSize.height,
                                  mask & UIViewAutoresizingFlexibleTopMargin,
                                  mask & UIViewAutoresizingFlexibleHeight,
                                  mask & UIViewAutoresizingFlexibleBottomMargin);
    Rect resized{{x.position, y.position}, {x.length, y.length}};
    if (resized != current) {
        setFrame(resized);
    }
}

void UIView::addSubview(const std::shared_ptr<UIView>& view) {
    if (!view || view.get() == this) {
        return;
    }
    std::shared_ptr<UIView> keep = view;  // removing it may drop its last other owner
    Color formerTint = keep->tintColor();
    keep->removeFromSuperview();
    subviews_.push_back(keep);
    keep->superview_ = std::static_pointer_cast<UIView>(shared_from_this());
    keep->setNeedsDisplay();
    if (keep->tintColor() != formerTint) {  // it inherits another tint here
        keep->notifyTintColorDidChange();
    }
}

void UIView::removeFromSuperview() {
    std::shared_ptr<UIView> parent = superview_.lock();
    if (!parent) {
        return;
    }
    std::vector<std::shared_ptr<UIView>>& siblings = parent->subviews_;
    siblings.erase(std::remove_if(siblings.begin(), siblings.end(),
                                  [this](const auto& sibling) { return sibling.get() == this; }),
                   siblings.end());
    superview_.reset();
    parent->setNeedsDisplayInRect(frame());  // what it covered shows the parent again
}

bool UIView::isDescendantOfView(const UIView& view) const {
    for (const UIView* ancestor = this; ancestor; ancestor = ancestor->superview_.lock().get()) {
        if (ancestor == &view) {
            return true;
        }
    }
    return false;
}

void UIView::setBackgroundColor(std::optional<Color> color) {
    willChange(AnimatableProperty::BackgroundColor);
    backgroundColor_ = color;
    setNeedsDisplay();
}

void UIView::setAlpha(double alpha) {
    willChange(AnimatableProperty::Alpha);
    alpha_ = alpha;
    setNeedsDisplay();
}

void UIView::setHidden(bool hidden) {
    hidden_ = hidden;
    setNeedsDisplay();
}

void UIView::setClipsToBounds(bool clips) {
    clipsToBounds_ = clips;
    setNeedsDisplay();
}

void UIView::setLayerStyle(CALayerStyle style) {
    layer_ = style;
    setNeedsDisplay();
}

Color UIView::tintColor() const {
    for (const UIView* view = this; view; view = view->superview_.lock().get()) {
        if (view->tintColor_) {
            return *view->tintColor_;
        }
    }
    return Color::colorWithRed(0, 122 / 255.0, 1, 1);
}

void UIView::setTintColor(std::optional<Color> color) {
    tintColor_ = color;
    notifyTintColorDidChange();
}

void UIView::notifyTintColorDidChange() {
    tintColorDidChange();
    for (const std::shared_ptr<UIView>& subview : subviews_) {
        if (!subview->tintColor_) {
            subview->notifyTintColorDidChange();
        }
    }
}

Point UIView::pointToSuperview(Point point) const {
    Point fromCentre{point.x - bounds_.origin.x - bounds_.size.width / 2,
                     point.y - bounds_.origin.y - bounds_.size.height / 2};
    Point turned = transform_.apply(fromCentre);
    return {center_.x + turned.x, center_.y + turned.y};
}

Point UIView::pointFromSuperview(Point point) const {
    Point fromCentre = transform_.inverted().apply({point.x - center_.x, point.y - center_.y});
    return {fromCentre.x + bounds_.origin.x + bounds_.size.width / 2,
            fromCentre.y + bounds_.origin.y + bounds_.size.height / 2};
}

Point UIView::pointToRoot(Point point) const {
    const UIView* view = this;
    for (std::shared_ptr<UIView> parent = superview(); parent; parent = parent->superview()) {
        point = view->pointToSuperview(point);
        view = parent.get();
    }
    return point;
}

Point UIView::pointFromRoot(Point point) const {
    std::shared_ptr<UIView> parent = superview();
    if (!parent) {
        return point;
    }
    return pointFromSuperview(parent->pointFromRoot(point));
}

Point UIView::convertPointToView(Point point, const UIView* view) const {
    Point inRoot = pointToRoot(point);
    return view ? view->pointFromRoot(inRoot) : inRoot;
}

Point UIView::convertPointFromView(Point point, const UIView* view) const {
    Point inRoot = view ? view->pointToRoot(point) : point;
    return pointFromRoot(inRoot);
}

Rect UIView::convertRectToView(Rect rect, const UIView* view) const {
    return boundingBox(rect, [&](Point p) { return convertPointToView(p, view); });
}

std::shared_ptr<UIView> UIView::hitTest(Point point) {
    if (hidden_ || !userInteractionEnabled_ || alpha_ < 0.01 || animationBlocksTouches() ||
        !pointInside(point)) {
        return nullptr;
    }
    for (auto it = subviews_.rbegin(); it != subviews_.rend(); ++it) {
        const std::shared_ptr<UIView>& subview = *it;
        if (std::shared_ptr<UIView> hit = subview->hitTest(subview->pointFromSuperview(point))) {
            return hit;
        }
    }
    return std::static_pointer_cast<UIView>(shared_from_this());
}

bool UIView::pointInside(Point point) const {
    return rectContainsPoint(bounds_, point);
}

void UIView::setNeedsDisplay() {
    setNeedsDisplayInRect(bounds_);
}

void UIView::setNeedsDisplayInRect(Rect rect) {
    needsDisplayRect_ = needsDisplayRect_ ? rectUnion(*needsDisplayRect_, rect) : rect;
}

std::optional<Rect> UIView::takeNeedsDisplayRect() {
    return std::exchange(needsDisplayRect_, std::nullopt);
}

void UIView::layoutIfNeeded() {
    if (needsLayout_) {
        needsLayout_ = false;
        layoutSubviews();
    }
    for (const std::shared_ptr<UIView>& subview : subviews_) {
        subview->layoutIfNeeded();
    }
}

void UIView::drawRect(cairo_t*, Rect) {}

}  // namespace tarvik
