#include "Views/TVKButton.h"

namespace tarvik {

std::shared_ptr<TVKButton> TVKButton::buttonWithType(UIButtonType type) {
    return std::make_shared<TVKButton>(type);
}

}  // namespace tarvik
