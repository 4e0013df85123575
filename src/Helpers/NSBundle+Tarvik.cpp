#include "Helpers/NSBundle+Tarvik.h"

#include "Platform/Runtime.h"

namespace tarvik {

Bundle tarvik_frameworkBundle() {
    return Runtime::current().platform().frameworkBundle();
}

}  // namespace tarvik
