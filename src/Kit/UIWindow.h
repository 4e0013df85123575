#pragma once

#include "Kit/UIView.h"

#include <memory>

namespace tarvik {

class UIViewController;

inline constexpr double UIWindowLevelNormal = 0;
inline constexpr double UIWindowLevelStatusBar = 1000;

// The root of a tree of views on the screen. A window starts hidden; it hands each touch of an
// event to the view the touch began in. Its tint colour, when set, is the tint of every view in
// it that sets none of its own; its background colour and alpha are those of any view.
class UIWindow : public UIView {
    TVK_KIT_CLASS(UIWindow, UIView)

  public:
    explicit UIWindow(Rect frame = {});

    double windowLevel() const { return windowLevel_; }
    void setWindowLevel(double level) { windowLevel_ = level; }

    // Makes this the application's key window (see UIApplication::keyWindow).
    void makeKeyWindow();
    // Shows the window and makes it key.
    void makeKeyAndVisible();
    bool isKeyWindow() const;

    virtual void sendEvent(const UIEvent& event);

    // The controller whose view fills the window (and follows its size). It appears when
    // the window shows and disappears when it hides; a controller replaced while the window
    // shows disappears at once.
    std::shared_ptr<UIViewController> rootViewController() const { return rootViewController_; }
    void setRootViewController(std::shared_ptr<UIViewController> controller);
    void setHidden(bool hidden) override;

  private:
    double windowLevel_ = UIWindowLevelNormal;
    std::shared_ptr<UIViewController> rootViewController_;
};

}  // namespace tarvik
