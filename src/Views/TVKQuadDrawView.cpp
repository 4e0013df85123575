#include "Views/TVKQuadDrawView.h"

#include "Platform/Runtime.h"

#include <numbers>

namespace tarvik {

TVKQuadDrawView::TVKQuadDrawView(Rect frame) : UIView(frame) {
    setMultipleTouchEnabled(false);
    setBackgroundColor(Color::colorWithRed(0, 0, 0, 0));
    path_.setLineWidth(kPenWidth);
}

void TVKQuadDrawView::reset() {
    path_.removeAllPoints();
    ctr_ = 0;
    incrementalImage_.reset();
    drawnImage_.reset();
    setNeedsDisplay();
}

void TVKQuadDrawView::setEraserModeEnabled(bool enabled) {
    eraserModeEnabled_ = enabled;
    if (path_.isEmpty()) {
        path_.setLineWidth(enabled ? kEraserWidth : kPenWidth);
        return;
    }
    // The stroke in progress changes width all along, not only where it grows next.
    Rect before = path_.strokeBounds();
    path_.setLineWidth(enabled ? kEraserWidth : kPenWidth);
    setNeedsDisplayInRect(rectUnion(before, path_.strokeBounds()));
}

Point TVKQuadDrawView::locationOf(const UITouchSet& touches) const {
    return touches.front()->locationInView(this);
}

void TVKQuadDrawView::touchesBegan(const UITouchSet& touches, const UIEvent&) {
    if (auto delegate = delegate_.lock()) {
        delegate->quadDrawViewDidStartDrawing(*this);
    }
    ctr_ = 0;
    pts_[0] = locationOf(touches);
    path_.moveToPoint(pts_[0]);
}

void TVKQuadDrawView::touchesMoved(const UITouchSet& touches, const UIEvent&) {
    pts_[++ctr_] = locationOf(touches);
    if (ctr_ != 3) {
        return;
    }
    // The curve runs from midpoint to midpoint with the samples between as control points, so
    // the sample stored in pts_[2] one move earlier is overwritten before it is ever used.
    pts_[2] = {(pts_[1].x + pts_[3].x) / 2, (pts_[1].y + pts_[3].y) / 2};
    path_.addQuadCurveToPoint(pts_[2], pts_[1]);
    setNeedsDisplayInRect(path_.strokeBoundsOfLast(2));
    pts_[0] = pts_[2];
    pts_[1] = pts_[3];
    ctr_ = 1;
}

void TVKQuadDrawView::touchesEnded(const UITouchSet&, const UIEvent&) {
    switch (ctr_) {
        case 0:
            // A tap: a circle joined to the centre by the line from the move, which the line
            // width turns into a dot of that radius.
            path_.addArcWithCenter(pts_[0], path_.lineWidth() / 2, 0, 2 * std::numbers::pi, true);
            break;
        case 1:
            path_.moveToPoint(pts_[0]);
            path_.addLineToPoint(pts_[1]);
            break;
        case 2:
            path_.moveToPoint(pts_[0]);
            path_.addQuadCurveToPoint(pts_[2], pts_[1]);
            break;
    }
    drawBitmap();
    setNeedsDisplayInRect(path_.strokeBounds());  // the live stroke became the baked one
    path_.removeAllPoints();
    ctr_ = 0;
    if (auto delegate = delegate_.lock()) {
        delegate->quadDrawViewDidStopDrawing(*this);
    }
}

void TVKQuadDrawView::touchesCancelled(const UITouchSet& touches, const UIEvent& event) {
    touchesEnded(touches, event);  // a cancelled stroke is kept, like an ended one
}

void TVKQuadDrawView::strokePath(cairo_t* context) const {
    path_.stroke(context, strokeColor_,
                 eraserModeEnabled_ ? CGBlendMode::Clear : CGBlendMode::Normal);
}

std::optional<Image> TVKQuadDrawView::drawnImage() const {
    if (incrementalImage_ && !drawnImage_) {
        drawnImage_ = incrementalImage_->snapshot();
    }
    return drawnImage_;
}

void TVKQuadDrawView::drawBitmap() {
    Rect frame = this->frame();
    double scale = Runtime::current().platform().screen().scale();
    bool fits = incrementalImage_ && incrementalImage_->width() == frame.size.width &&
                incrementalImage_->height() == frame.size.height &&
                incrementalImage_->scale() == scale;
    if (!fits) {
        // A new bitmap the canvas's size starts fully transparent, as filling it with the
        // clear colour would, and takes what was drawn before at (0, 0).
        std::optional<CanvasBitmap> fresh =
            CanvasBitmap::make(frame.size.width, frame.size.height, scale);
        if (fresh && incrementalImage_) {
            fresh->draw([&](cairo_t* context) {
                cairo_set_source_surface(context, incrementalImage_->surface(), 0, 0);
                cairo_paint(context);
            });
        }
        incrementalImage_ = std::move(fresh);
    }
    if (incrementalImage_) {
        incrementalImage_->draw([&](cairo_t* context) { strokePath(context); });
    }
    drawnImage_.reset();
}

void TVKQuadDrawView::drawRect(cairo_t* context, Rect rect) {
    // A live eraser stroke clears the canvas's own ink only, not what lies under the canvas:
    // the bitmap and the stroke meet in a group of their own first.
    if (eraserModeEnabled_) {
        cairo_push_group(context);
    }
    if (incrementalImage_) {
        cairo_save(context);
        cairo_rectangle(context, rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
        cairo_clip(context);
        cairo_translate(context, rect.origin.x, rect.origin.y);
        cairo_scale(context, rect.size.width / incrementalImage_->width(),
                    rect.size.height / incrementalImage_->height());
        cairo_set_source_surface(context, incrementalImage_->surface(), 0, 0);
        cairo_paint(context);
        cairo_restore(context);
    }
    strokePath(context);
    if (eraserModeEnabled_) {
        cairo_pop_group_to_source(context);
        cairo_paint(context);
    }
}

}  // namespace tarvik
