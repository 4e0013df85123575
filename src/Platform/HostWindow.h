#pragma once

#include "Platform/Image.h"

#include <functional>
#include <mutex>
#include <optional>

namespace tarvik {

// The host application's main window, which an issue report starts from.
class HostWindow {
  public:
    virtual ~HostWindow() = default;
    // What the window shows now: an opaque image of its bounds in points at `scale` pixels per
    // point. None when the host has no window to capture. Called on the main thread.
    virtual std::optional<Image> snapshot(double scale) = 0;
};

// A host window captured by whatever a layer above the core supplies (the desktop layer, or a
// host through its own seam); none until one is supplied.
class SuppliedHostWindow : public HostWindow {
  public:
    using Capture = std::function<std::optional<Image>(double scale)>;
    std::optional<Image> snapshot(double scale) override {
        Capture capture;
        {
            std::lock_guard lock(mutex_);
            capture = capture_;
        }
        return capture ? capture(scale) : std::nullopt;
    }
    void setCapture(Capture capture) {
        std::lock_guard lock(mutex_);
        capture_ = std::move(capture);
    }

  private:
    std::mutex mutex_;
    Capture capture_;
};

}  // namespace tarvik
