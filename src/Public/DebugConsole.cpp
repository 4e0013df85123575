#include "Public/DebugConsole.h"

#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Platform/Runtime.h"

namespace tarvik {

void logToConsoleIfDebug(const std::string& text) {
    if (!Tarvik::sharedInstance().debug()) {
        return;
    }
    if (TVKLogger::isDeliveringConsoleOutput()) {
        // Writing the captured output failed: a console line would be captured again and fail
        // again, so this one goes to the real console only.
        Runtime::current().platform().consoleCapture().writeToOriginal(
            ConsoleCapture::Stream::StandardError, text + "\n");
        return;
    }
    Runtime::current().console().writeLine(text);
}

}  // namespace tarvik
