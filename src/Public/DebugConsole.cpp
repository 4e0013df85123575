#include "Public/DebugConsole.h"

#include <tarvik/Tarvik.h>

#include "Platform/Runtime.h"

namespace tarvik {

void logToConsoleIfDebug(const std::string& text) {
    if (Tarvik::sharedInstance().debug()) {
        Runtime::current().console().writeLine(text);
    }
}

}  // namespace tarvik
