#include "Kit/UIViewAnimation.h"

#include "Kit/UIView.h"
#include "Platform/Runtime.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tarvik {

namespace {

// The duration of the older begin/commit form when none is set, as on the phone.
constexpr double kDefaultBeginCommitDuration = 0.2;

double now() {
    return Runtime::current().clock().mediaTime();
}

double interpolate(double from, double to, double progress) {
    return from + (to - from) * progress;
}

Point interpolate(Point from, Point to, double progress) {
    return {interpolate(from.x, to.x, progress), interpolate(from.y, to.y, progress)};
}

Rect interpolate(Rect from, Rect to, double progress) {
    return {interpolate(from.origin, to.origin, progress),
            {interpolate(from.size.width, to.size.width, progress),
             interpolate(from.size.height, to.size.height, progress)}};
}

// Components may pass their range while a spring overshoots; a colour keeps to it.
Color interpolate(const Color& from, const Color& to, double progress) {
    auto component = [&](double a, double b) {
        return std::clamp(interpolate(a, b, progress), 0.0, 1.0);
    };
    return Color::colorWithRed(component(from.red(), to.red()), component(from.green(), to.green()),
                               component(from.blue(), to.blue()),
                               component(from.alpha(), to.alpha()));
}

// A transform as scale, rotation, shear and translation, so that a turn stays a turn halfway
// (mixing the matrices' entries would shrink the view on the way).
struct TransformParts {
    double scaleX, scaleY, angle, shear, tx, ty;

    explicit TransformParts(const AffineTransform& t)
        : scaleX(std::hypot(t.a, t.b)), angle(std::atan2(t.b, t.a)), tx(t.tx), ty(t.ty) {
        shear = scaleX != 0 ? (t.a * t.c + t.b * t.d) / scaleX : 0;
        scaleY = scaleX != 0 ? (t.a * t.d - t.b * t.c) / scaleX : std::hypot(t.c, t.d);
    }

    AffineTransform transform() const {
        double cosine = std::cos(angle), sine = std::sin(angle);
        return {scaleX * cosine,
                scaleX * sine,
                shear * cosine - scaleY * sine,
                shear * sine + scaleY * cosine,
                tx,
                ty};
    }
};

AffineTransform interpolate(const AffineTransform& from, const AffineTransform& to,
                            double progress) {
    TransformParts a(from), b(to);
    // The shorter way round.
    double turn = std::remainder(b.angle - a.angle, 2 * std::numbers::pi);
    a.scaleX = interpolate(a.scaleX, b.scaleX, progress);
    a.scaleY = interpolate(a.scaleY, b.scaleY, progress);
    a.angle += turn * progress;
    a.shear = interpolate(a.shear, b.shear, progress);
    a.tx = interpolate(a.tx, b.tx, progress);
    a.ty = interpolate(a.ty, b.ty, progress);
    return a.transform();
}

// The rendered value of `property` at `time`: the model value unless it is animating.
template <typename T>
T presented(const ViewAnimations* animations, AnimatableProperty property, const T& model,
            double time) {
    const ViewAnimations::Running* running =
        animations ? animations->running(property, time) : nullptr;
    if (!running) {
        return model;
    }
    double progress = running->group->timing().progress(time);
    if (progress == 1) {
        return model;  // exactly, without rounding on the way
    }
    return interpolate(std::get<T>(running->from), model, progress);
}

}  // namespace

// ----- groups and the animations of one view

void ViewAnimationGroup::valueStarted(std::weak_ptr<ViewAnimations> holder) {
    ++runningValues_;
    holders_.push_back(std::move(holder));
}

void ViewAnimationGroup::valueTakenOver() {
    if (timing_.isOver(now())) {
        return;  // it ended; its end is on its way
    }
    takenOver_ = true;
    if (--runningValues_ == 0) {
        Runtime::current().mainQueue().async(
            [group = shared_from_this()] { group->complete(false); });
    }
}

void ViewAnimationGroup::scheduleEnd() {
    double wait = std::max(0.0, timing_.endTime() - now());
    auto group = shared_from_this();
    if (wait == 0) {
        Runtime::current().mainQueue().async([group] { group->end(); });
    } else {
        Runtime::current().mainQueue().after(wait, [group] { group->end(); });
    }
}

void ViewAnimationGroup::end() {
    for (const std::weak_ptr<ViewAnimations>& holder : holders_) {
        if (std::shared_ptr<ViewAnimations> animations = holder.lock()) {
            animations->forget(*this);
        }
    }
    holders_.clear();
    complete(!takenOver_);
}

void ViewAnimationGroup::complete(bool finished) {
    if (completed_) {
        return;
    }
    completed_ = true;
    if (UIViewAnimationCompletion completion = std::move(completion_)) {
        completion(finished);
    }
}

void ViewAnimations::start(AnimatableProperty property, AnimatableValue from,
                           const std::shared_ptr<ViewAnimationGroup>& group) {
    std::optional<Running>& slot = values_[static_cast<std::size_t>(property)];
    if (slot) {
        slot->group->valueTakenOver();
    }
    slot = Running{std::move(from), group};
    group->valueStarted(weak_from_this());
}

void ViewAnimations::forget(const ViewAnimationGroup& group) {
    for (std::optional<Running>& slot : values_) {
        if (slot && slot->group.get() == &group) {
            slot.reset();
        }
    }
}

const ViewAnimations::Running* ViewAnimations::running(AnimatableProperty property,
                                                       double time) const {
    const std::optional<Running>& slot = values_[static_cast<std::size_t>(property)];
    return slot && !slot->group->timing().isOver(time) ? &*slot : nullptr;
}

bool ViewAnimations::isAnimating(double time) const {
    return layer_.isAnimating(time) ||
           std::any_of(values_.begin(), values_.end(), [&](const std::optional<Running>& slot) {
               return slot && !slot->group->timing().isOver(time);
           });
}

bool ViewAnimations::blocksTouches(double time) const {
    return std::any_of(values_.begin(), values_.end(), [&](const std::optional<Running>& slot) {
        return slot && !slot->group->allowsUserInteraction() && !slot->group->timing().isOver(time);
    });
}

// ----- the open animation blocks

// An animation block (or begin/commit pair) while it is open: its parameters and the values
// changed in it. Blocks nest; the innermost records. Main queue only, like all of the toolkit.
class UIViewAnimationTransaction {
  public:
    double duration = 0;
    double delay = 0;
    std::optional<SpringTimingCurve> spring;
    std::uint32_t options = 0;
    UIViewAnimationCompletion completion;

    static std::vector<UIViewAnimationTransaction>& open() {
        static std::vector<UIViewAnimationTransaction> transactions;
        return transactions;
    }

    // Opens `transaction`, runs `animations` in it and commits it.
    static void run(UIViewAnimationTransaction transaction,
                    const std::function<void()>& animations) {
        open().push_back(std::move(transaction));
        try {
            if (animations) {
                animations();
            }
        } catch (...) {
            open().pop_back();  // a block that failed animates nothing
            throw;
        }
        closeInnermost();
    }

    static void closeInnermost() {
        UIViewAnimationTransaction closed = std::move(open().back());
        open().pop_back();
        closed.commit();
    }

    void record(UIView& view, AnimatableProperty property) {
        auto owner = std::static_pointer_cast<UIView>(view.weak_from_this().lock());
        std::optional<AnimatableValue> model = view.modelValue(property);
        if (!owner || !model) {
            return;  // a view under construction, or no colour to start from
        }
        for (const Change& change : changes_) {
            if (change.view.lock() == owner && change.property == property) {
                return;  // the first value set in the block is where it starts
            }
        }
        std::optional<AnimatableValue> rendered;
        double time = now();
        if (view.animations_ && view.animations_->running(property, time)) {
            rendered = std::visit(
                [&](const auto& value) -> AnimatableValue {
                    return presented(view.animations_.get(), property, value, time);
                },
                *model);
        }
        changes_.push_back({owner, property, *model, rendered});
    }

    // Starts the animations of the changes recorded, timed from now.
    void commit() {
        double begin = now() + std::max(0.0, delay);
        auto curve = static_cast<UIViewAnimationCurve>((options >> 16) & 3);
        AnimationTiming timing = spring ? AnimationTiming(begin, duration, *spring)
                                        : AnimationTiming(begin, std::max(0.0, duration), curve);
        auto group = std::make_shared<ViewAnimationGroup>(timing, options, std::move(completion));
        if (duration > 0) {
            startAnimations(group);
        }
        group->scheduleEnd();
    }

  private:
    struct Change {
        std::weak_ptr<UIView> view;
        AnimatableProperty property;
        AnimatableValue model;                    // before the block changed it
        std::optional<AnimatableValue> rendered;  // before, when it was animating
    };

    void startAnimations(const std::shared_ptr<ViewAnimationGroup>& group) {
        bool fromCurrentState = options & UIViewAnimationOptionBeginFromCurrentState;
        for (Change& change : changes_) {
            std::shared_ptr<UIView> view = change.view.lock();
            std::optional<AnimatableValue> to =
                view ? view->modelValue(change.property) : std::nullopt;
            if (!to || *to == change.model) {
                continue;  // gone, no colour to move to, or nothing to move
            }
            AnimatableValue from =
                fromCurrentState && change.rendered ? *change.rendered : change.model;
            view->animationState().start(change.property, std::move(from), group);
        }
    }

    std::vector<Change> changes_;
};

// ----- the view's side

void UIView::animateWithDuration(double duration, double delay, double dampingRatio,
                                 double velocity, std::uint32_t options,
                                 const std::function<void()>& animations,
                                 UIViewAnimationCompletion completion) {
    UIViewAnimationTransaction transaction;
    transaction.duration = duration;
    transaction.delay = delay;
    if (duration > 0) {
        transaction.spring = SpringTimingCurve(dampingRatio, velocity, duration);
    }
    transaction.options = options;
    transaction.completion = std::move(completion);
    UIViewAnimationTransaction::run(std::move(transaction), animations);
}

void UIView::animateWithDuration(double duration, const std::function<void()>& animations,
                                 UIViewAnimationCompletion completion) {
    UIViewAnimationTransaction transaction;
    transaction.duration = duration;
    transaction.completion = std::move(completion);
    UIViewAnimationTransaction::run(std::move(transaction), animations);
}

void UIView::beginAnimations(const char*, void*) {
    UIViewAnimationTransaction transaction;
    transaction.duration = kDefaultBeginCommitDuration;
    UIViewAnimationTransaction::open().push_back(std::move(transaction));
}

void UIView::setAnimationDuration(double duration) {
    if (!UIViewAnimationTransaction::open().empty()) {
        UIViewAnimationTransaction::open().back().duration = duration;
    }
}

void UIView::setAnimationBeginsFromCurrentState(bool fromCurrentState) {
    if (UIViewAnimationTransaction::open().empty()) {
        return;
    }
    std::uint32_t& options = UIViewAnimationTransaction::open().back().options;
    if (fromCurrentState) {
        options |= UIViewAnimationOptionBeginFromCurrentState;
    } else {
        options &= ~std::uint32_t{UIViewAnimationOptionBeginFromCurrentState};
    }
}

void UIView::commitAnimations() {
    if (!UIViewAnimationTransaction::open().empty()) {
        UIViewAnimationTransaction::closeInnermost();
    }
}

void UIView::willChange(AnimatableProperty property) {
    if (!UIViewAnimationTransaction::open().empty()) {
        UIViewAnimationTransaction::open().back().record(*this, property);
    }
}

std::optional<AnimatableValue> UIView::modelValue(AnimatableProperty property) const {
    switch (property) {
        case AnimatableProperty::Center:
            return center_;
        case AnimatableProperty::Bounds:
            return bounds_;
        case AnimatableProperty::Alpha:
            return alpha_;
        case AnimatableProperty::Transform:
            return transform_;
        case AnimatableProperty::BackgroundColor:
            break;
    }
    if (!backgroundColor_) {
        return std::nullopt;
    }
    return *backgroundColor_;
}

UIViewPresentation UIView::presentationValues(double time) const {
    const ViewAnimations* animations = animations_.get();
    if (!animations) {
        return {center_, bounds_, transform_, alpha_, backgroundColor_};
    }
    UIViewPresentation presentation{
        presented(animations, AnimatableProperty::Center, center_, time),
        presented(animations, AnimatableProperty::Bounds, bounds_, time),
        presented(animations, AnimatableProperty::Transform, transform_, time),
        std::clamp(presented(animations, AnimatableProperty::Alpha, alpha_, time), 0.0, 1.0),
        backgroundColor_};
    if (backgroundColor_) {
        presentation.backgroundColor =
            presented(animations, AnimatableProperty::BackgroundColor, *backgroundColor_, time);
    }
    Point offset = animations->layer().offsetAt(time);
    presentation.center.x += offset.x;
    presentation.center.y += offset.y;
    return presentation;
}

UIViewPresentation UIView::presentationValues() const {
    return presentationValues(now());
}

bool UIView::isAnimating(double time) const {
    return animations_ && animations_->isAnimating(time);
}

CALayerAnimations& UIView::layerAnimations() {
    return animationState().layer();
}

bool UIView::animationBlocksTouches() const {
    return animations_ && animations_->blocksTouches(now());
}

ViewAnimations& UIView::animationState() {
    if (!animations_) {
        animations_ = std::make_shared<ViewAnimations>();
    }
    return *animations_;
}

}  // namespace tarvik
