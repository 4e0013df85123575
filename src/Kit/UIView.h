#pragma once

#include "Kit/AffineTransform.h"
#include "Kit/Color.h"
#include "Kit/UIResponder.h"
#include "Kit/UIViewAnimation.h"
#include "Platform/Geometry.h"

#include <cairo.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace tarvik {

// How a view's frame follows a change of its superview's size.
enum UIViewAutoresizing : std::uint32_t {
    UIViewAutoresizingNone = 0,
    UIViewAutoresizingFlexibleLeftMargin = 1 << 0,
    UIViewAutoresizingFlexibleWidth = 1 << 1,
    UIViewAutoresizingFlexibleRightMargin = 1 << 2,
    UIViewAutoresizingFlexibleTopMargin = 1 << 3,
    UIViewAutoresizingFlexibleHeight = 1 << 4,
    UIViewAutoresizingFlexibleBottomMargin = 1 << 5,
};

// The look a view's layer adds around its content.
struct CALayerStyle {
    std::optional<Color> borderColor;
    double borderWidth = 0;
    double cornerRadius = 0;
    bool operator==(const CALayerStyle&) const = default;
};

// What a view shows at one moment, animations included: its values as they are rendered.
// `center` also carries the offset of its layer's position animations.
struct UIViewPresentation {
    Point center;
    Rect bounds;
    AffineTransform transform;
    double alpha = 1;
    std::optional<Color> backgroundColor;
};

class UIViewAnimationTransaction;

// A rectangle of the screen in a tree of views. Geometry is in points and never rounded: the
// frame is where the view lies in its superview, the bounds its own coordinate space; a
// transform (a rotation) turns the view about its centre. Everything happens on the main queue.
class UIView : public UIResponder {
    TVK_KIT_CLASS(UIView, UIResponder)

  public:
    explicit UIView(Rect frame = {});

    // The bounding box of the transformed bounds in the superview. Setting it sets the centre
    // and the size of the bounds (the transform is kept, applied about the new centre; a view
    // turned a quarter gets the frame's sides swapped, and gives that frame back exactly).
    Rect frame() const;
    void setFrame(Rect frame);
    Rect bounds() const { return bounds_; }
    void setBounds(Rect bounds);
    Point center() const { return center_; }
    void setCenter(Point center);
    AffineTransform transform() const { return transform_; }
    void setTransform(AffineTransform transform);

    std::uint32_t autoresizingMask() const { return autoresizingMask_; }
    void setAutoresizingMask(std::uint32_t mask) { autoresizingMask_ = mask; }
    bool autoresizesSubviews() const { return autoresizesSubviews_; }
    void setAutoresizesSubviews(bool autoresizes) { autoresizesSubviews_ = autoresizes; }

    // Subviews in stacking order: the last is drawn last and is hit first.
    const std::vector<std::shared_ptr<UIView>>& subviews() const { return subviews_; }
    std::shared_ptr<UIView> superview() const { return superview_.lock(); }
    // Adds `view` on top, taking it from its former superview.
    void addSubview(const std::shared_ptr<UIView>& view);
    void removeFromSuperview();
    bool isDescendantOfView(const UIView& view) const;
    std::shared_ptr<UIResponder> nextResponder() const override { return superview(); }

    std::optional<Color> backgroundColor() const { return backgroundColor_; }
    void setBackgroundColor(std::optional<Color> color);
    double alpha() const { return alpha_; }
    void setAlpha(double alpha);
    bool isHidden() const { return hidden_; }
    virtual void setHidden(bool hidden);
    bool clipsToBounds() const { return clipsToBounds_; }
    void setClipsToBounds(bool clips);
    const CALayerStyle& layer() const { return layer_; }
    void setLayerStyle(CALayerStyle style);
    bool isUserInteractionEnabled() const { return userInteractionEnabled_; }
    void setUserInteractionEnabled(bool enabled) { userInteractionEnabled_ = enabled; }
    bool isMultipleTouchEnabled() const { return multipleTouchEnabled_; }
    void setMultipleTouchEnabled(bool enabled) { multipleTouchEnabled_ = enabled; }

    // The colour that template images and a system button's title take: the view's own when
    // set, otherwise the nearest superview's, otherwise the phone's system blue. Setting it,
    // or moving the view where it inherits another, calls `tintColorDidChange` on the view
    // and on each subview that inherits it.
    Color tintColor() const;
    void setTintColor(std::optional<Color> color);
    virtual void tintColorDidChange() {}

    // A point or rectangle of this view's bounds in `view`'s, and back. Views of different
    // trees meet in their roots' coordinates; none stands for the root's (the window's).
    Point convertPointToView(Point point, const UIView* view) const;
    Point convertPointFromView(Point point, const UIView* view) const;
    Rect convertRectToView(Rect rect, const UIView* view) const;

    // The deepest visible, interactive view under `point` (in this view's bounds), the last
    // subview first; none when the point is outside or this view takes no touches.
    virtual std::shared_ptr<UIView> hitTest(Point point);
    virtual bool pointInside(Point point) const;

    // Content to draw again: `needsDisplayRect` is the union of what was asked for since the
    // renderer last took it, in bounds coordinates.
    void setNeedsDisplay();
    void setNeedsDisplayInRect(Rect rect);
    std::optional<Rect> needsDisplayRect() const { return needsDisplayRect_; }
    std::optional<Rect> takeNeedsDisplayRect();

    void setNeedsLayout() { needsLayout_ = true; }
    // Lays this view out if it asked for it, then its subviews.
    void layoutIfNeeded();
    // Places the subviews; the base places nothing (autoresizing already moved them).
    virtual void layoutSubviews() {}

    // Draws the view's own content into `context`, whose units are this view's bounds
    // coordinates, for the part `rect`. The base draws nothing (its background is the
    // renderer's).
    virtual void drawRect(cairo_t* context, Rect rect);

    // Animations (UIViewAnimation.cpp). Inside `animations` the values set (centre, frame and
    // bounds, alpha, transform, background colour) change at once; what is rendered moves to
    // them over the duration, after the delay, on the runtime's media clock. A spring moves with
    // `dampingRatio` (1: no overshoot) and `velocity` (the whole distance per second).
    static void animateWithDuration(double duration, double delay, double dampingRatio,
                                    double velocity, std::uint32_t options,
                                    const std::function<void()>& animations,
                                    UIViewAnimationCompletion completion = {});
    // Ease-in-out, no delay.
    static void animateWithDuration(double duration, const std::function<void()>& animations,
                                    UIViewAnimationCompletion completion = {});
    // The older form: values set between begin and commit animate, by default over 0.2 s,
    // ease-in-out. The name and context are accepted for the phone's calls; nothing reads them.
    static void beginAnimations(const char* animationID, void* context);
    static void setAnimationDuration(double duration);
    static void setAnimationBeginsFromCurrentState(bool fromCurrentState);
    static void commitAnimations();

    // The values rendered at media time `now` (the runtime's now when left out).
    UIViewPresentation presentationValues(double now) const;
    UIViewPresentation presentationValues() const;
    // Whether a view or layer animation of this view is under way (or waits for its delay).
    bool isAnimating(double now) const;
    // The animations of the view's layer (its look is `layer()`).
    CALayerAnimations& layerAnimations();

  private:
    friend class UIViewAnimationTransaction;

    // Told before an animatable value changes, so that an open animation block records it.
    void willChange(AnimatableProperty property);
    // None for the background colour when there is none.
    std::optional<AnimatableValue> modelValue(AnimatableProperty property) const;
    bool animationBlocksTouches() const;
    ViewAnimations& animationState();

    void resizeSubviews(Size oldSize);
    void notifyTintColorDidChange();
    void autoresize(Size oldSuperviewSize, Size newSuperviewSize);
    Point pointToSuperview(Point point) const;
    Point pointFromSuperview(Point point) const;
    Point pointToRoot(Point point) const;
    Point pointFromRoot(Point point) const;

    Point center_;
    Rect bounds_;
    AffineTransform transform_;
    std::uint32_t autoresizingMask_ = UIViewAutoresizingNone;
    bool autoresizesSubviews_ = true;
    std::vector<std::shared_ptr<UIView>> subviews_;
    std::weak_ptr<UIView> superview_;
    std::optional<Color> backgroundColor_;
    double alpha_ = 1;
    bool hidden_ = false;
    bool clipsToBounds_ = false;
    CALayerStyle layer_;
    bool userInteractionEnabled_ = true;
    bool multipleTouchEnabled_ = false;
    std::optional<Color> tintColor_;
    std::optional<Rect> needsDisplayRect_;
    bool needsLayout_ = true;
    std::shared_ptr<ViewAnimations> animations_;  // made on the first animation
};

// Geometry helpers of the toolkit.
Rect rectUnion(Rect a, Rect b);
bool rectContainsPoint(Rect rect, Point point);
// Whether the two rectangles share some area, as CGRectIntersectsRect answers: rectangles that
// only touch along an edge do not.
bool rectIntersectsRect(Rect a, Rect b);

}  // namespace tarvik
