#pragma once

#include "Kit/UIBezierPath.h"
#include "Kit/UIView.h"
#include "Platform/CanvasBitmap.h"
#include "Platform/Image.h"

#include <array>
#include <memory>
#include <optional>

namespace tarvik {

class TVKQuadDrawView;

// Told when a stroke starts and when it has ended and is in the canvas's bitmap. Both are
// optional: the defaults do nothing.
class TVKQuadDrawViewDelegate {
  public:
    virtual ~TVKQuadDrawViewDelegate() = default;
    virtual void quadDrawViewDidStartDrawing(TVKQuadDrawView&) {}
    virtual void quadDrawViewDidStopDrawing(TVKQuadDrawView&) {}
};

// The transparent finger-drawing layer over the screenshot. One finger draws (or erases) a
// stroke smoothed by quadratic curves through the midpoints of every other sample; each
// finished stroke is baked into a bitmap at the screen's scale, and the stroke in progress is
// drawn live over it.
class TVKQuadDrawView : public UIView {
    TVK_KIT_CLASS(TVKQuadDrawView, UIView)

  public:
    static constexpr double kPenWidth = 7.0;
    static constexpr double kEraserWidth = 25.0;

    explicit TVKQuadDrawView(Rect frame = {});

    // Drops every stroke; the colour and the eraser mode stay.
    void reset();
    // The finished strokes on a transparent background; none before the first stroke ends
    // and after `reset`.
    std::optional<Image> drawnImage() const;

    bool eraserModeEnabled() const { return eraserModeEnabled_; }
    // Also sets the width of the path, so that it applies to a stroke in progress.
    void setEraserModeEnabled(bool enabled);
    Color strokeColor() const { return strokeColor_; }
    void setStrokeColor(Color color) { strokeColor_ = color; }
    std::weak_ptr<TVKQuadDrawViewDelegate> delegate() const { return delegate_; }
    void setDelegate(std::weak_ptr<TVKQuadDrawViewDelegate> delegate) { delegate_ = delegate; }

    // Bakes the path into the bitmap.
    void drawBitmap();
    void drawRect(cairo_t* context, Rect rect) override;

    void touchesBegan(const UITouchSet& touches, const UIEvent& event) override;
    void touchesMoved(const UITouchSet& touches, const UIEvent& event) override;
    void touchesEnded(const UITouchSet& touches, const UIEvent& event) override;
    void touchesCancelled(const UITouchSet& touches, const UIEvent& event) override;

  private:
    Point locationOf(const UITouchSet& touches) const;
    void strokePath(cairo_t* context) const;

    UIBezierPath path_;
    // The finished strokes, drawn into in place; `drawnImage` hands out a copy, made once
    // after each change.
    std::optional<CanvasBitmap> incrementalImage_;
    mutable std::optional<Image> drawnImage_;
    std::array<Point, 4> pts_{};
    int ctr_ = 0;
    bool eraserModeEnabled_ = false;
    std::weak_ptr<TVKQuadDrawViewDelegate> delegate_;
    Color strokeColor_ = Color::colorWithRed(0, 0, 0, 1);
};

}  // namespace tarvik
