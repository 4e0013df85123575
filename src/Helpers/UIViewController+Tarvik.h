#pragma once

#include "Kit/UIViewController.h"

#include <array>
#include <functional>
#include <string_view>
#include <vector>

namespace tarvik {

// Interaction tracking on screens: each screen that is about to appear is written to the
// user-tracking log, after the controller's own handling of it.
namespace UIViewControllerTarvik {

// Wraps the view controllers' `viewWillAppear`, once per runtime however often it is called.
void tarvik_swizzleMethods();

// The wrapper: the controller's own `viewWillAppear` first, then, unless the controller is
// ignored, "-[<controller class> viewWillAppear:]".
void tarvik_viewWillAppear(const std::function<void(UIViewController&, bool)>& previous,
                           UIViewController& controller, bool animated);

// False for a controller of the kind of one of the seven ignored classes (the class or a
// subclass): containers, the system's keyboard and rotation controllers and the reporter's
// screens, so that only content screens are logged. `classChain` is the controller's class
// name followed by its superclasses' names.
bool tarvik_shouldLogCall(const std::vector<std::string_view>& classChain);
bool tarvik_shouldLogCall(const UIViewController& controller);
const std::array<std::string_view, 7>& tarvik_classNameIgnoreList();

}  // namespace UIViewControllerTarvik

}  // namespace tarvik
