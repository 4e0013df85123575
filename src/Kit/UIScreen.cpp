#include "Kit/UIScreen.h"

#include "Platform/Runtime.h"

namespace tarvik {

UIScreen& UIScreen::mainScreen() {
    return *Runtime::current().sharedInstance<UIScreen>();
}

Rect UIScreen::bounds() const {
    return Runtime::current().platform().screen().bounds();
}

double UIScreen::scale() const {
    return Runtime::current().platform().screen().scale();
}

}  // namespace tarvik
