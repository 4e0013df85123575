#include "Platform/Testing/ReporterFingers.h"

#include "Kit/UIApplication.h"
#include "Kit/UIButton.h"
#include "Kit/UILabel.h"
#include "Kit/UIResponder.h"

#include <stdexcept>

namespace tarvik::testing {

namespace {

// What a presenter does before every frame, and so before the user can touch what it shows.
void layOutWindows() {
    for (const std::shared_ptr<UIWindow>& window : UIApplication::sharedApplication().windows()) {
        window->layoutIfNeeded();
    }
}

}  // namespace

void ReporterFingers::touch(UITouchPhase phase, Point point) {
    layOutWindows();
    UIApplication::sharedApplication().handleTouch(window(), 1, phase, point);
}

void ReporterFingers::tap(const UIView& view) {
    layOutWindows();
    Rect frame = view.convertRectToView(view.bounds(), window().get());
    tap(Point{frame.origin.x + frame.size.width / 2, frame.origin.y + frame.size.height / 2});
}

void ReporterFingers::tap(Point point) {
    touch(UITouchPhase::Began, point);
    touch(UITouchPhase::Ended, point);
    wait_(0.05);
}

namespace {

// A button with the title, or the label of an alert's action.
std::shared_ptr<UIView> findButtonTitled(const std::shared_ptr<UIView>& view,
                                         const std::string& title) {
    if (view->isHidden()) {
        return nullptr;
    }
    auto button = std::dynamic_pointer_cast<UIButton>(view);
    auto label = std::dynamic_pointer_cast<UILabel>(view);
    if ((button && button->currentTitle() == title) ||
        (label && label->text() == title && label->superview() &&
         !std::dynamic_pointer_cast<UIButton>(label->superview()))) {
        return view;
    }
    for (const std::shared_ptr<UIView>& subview : view->subviews()) {
        if (std::shared_ptr<UIView> found = findButtonTitled(subview, title)) {
            return found;
        }
    }
    return nullptr;
}

}  // namespace

void ReporterFingers::tapButtonTitled(const std::string& title) {
    layOutWindows();
    std::vector<std::shared_ptr<UIWindow>> windows = UIApplication::sharedApplication().windows();
    for (auto window = windows.rbegin(); window != windows.rend(); ++window) {
        if (std::shared_ptr<UIView> button = findButtonTitled(*window, title)) {
            Rect frame = button->convertRectToView(button->bounds(), window->get());
            Point centre{frame.origin.x + frame.size.width / 2,
                         frame.origin.y + frame.size.height / 2};
            UIApplication::sharedApplication().handleTouch(*window, 1, UITouchPhase::Began, centre);
            UIApplication::sharedApplication().handleTouch(*window, 1, UITouchPhase::Ended, centre);
            wait_(0.05);
            return;
        }
    }
    throw std::logic_error("no button titled \"" + title + "\" on screen");
}

void ReporterFingers::drag(const std::vector<Point>& points) {
    touch(UITouchPhase::Began, points.front());
    for (std::size_t i = 1; i + 1 < points.size(); ++i) {
        touch(UITouchPhase::Moved, points[i]);
    }
    touch(UITouchPhase::Ended, points.back());
    wait_(0.05);
}

void ReporterFingers::type(const std::string& text) {
    auto input =
        std::dynamic_pointer_cast<UIKeyInput>(UIApplication::sharedApplication().firstResponder());
    if (!input) {
        throw std::logic_error("typing with nothing focused");
    }
    for (char character : text) {
        input->insertText(std::string(1, character));
    }
}

}  // namespace tarvik::testing
