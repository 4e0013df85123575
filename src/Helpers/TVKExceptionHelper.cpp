#include "Helpers/TVKExceptionHelper.h"

#include "Helpers/TVKLogger.h"
#include "Platform/CallStack.h"
#include "Platform/Runtime.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <thread>

namespace tarvik {

namespace {

std::string reasonOfCurrentException() {
    std::exception_ptr exception = std::current_exception();
    if (!exception) {
        return "std::terminate called without an active exception";
    }
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "uncaught exception of a type not derived from std::exception";
    }
}

// Reached for an uncaught exception on any thread. With no handler to unwind to, the stack is
// still the thrower's here, so the frames show where the exception came from.
[[noreturn]] void terminateHandler() {
    static std::atomic<bool> entered{false};
    if (entered.exchange(true)) {
        std::abort();  // a second failure while handling the first
    }
    std::vector<std::string> frames = callStackSymbols(1);
    TVKExceptionHelper::crashHandler(reasonOfCurrentException(), frames);
    std::abort();
}

}  // namespace

std::shared_ptr<TVKExceptionHelper> TVKExceptionHelper::sharedInstance() {
    return Runtime::current().sharedInstance<TVKExceptionHelper>();
}

void TVKExceptionHelper::configureCrashHandler() {
    std::set_terminate(terminateHandler);
}

Date TVKExceptionHelper::crashHandlerBlockedDate() const {
    std::lock_guard lock(mutex_);
    return crashHandlerBlockedDate_;
}

void TVKExceptionHelper::setCrashHandlerBlockedDate(Date date) {
    std::lock_guard lock(mutex_);
    crashHandlerBlockedDate_ = date;
}

void TVKExceptionHelper::crashHandler(const std::string& reason,
                                      const std::vector<std::string>& callStackSymbols) {
    std::shared_ptr<TVKLogger> logger = TVKLogger::sharedInstance();
    std::shared_ptr<TVKExceptionHelper> guard = sharedInstance();
    Runtime& runtime = Runtime::current();
    Clock& clock = runtime.clock();
    auto toDate = [&](double mediaTime) {
        return clock.now() + std::chrono::duration_cast<Date::duration>(
                                 std::chrono::duration<double>(mediaTime - clock.mediaTime()));
    };

    // Every standard-error chunk the logger captures moves the end of the wait a second on.
    double blockedUntil = clock.mediaTime() + kQuietPeriod;
    for (;;) {
        blockedUntil = std::max(blockedUntil, logger->lastStandardErrorActivity() + kQuietPeriod);
        guard->setCrashHandlerBlockedDate(toDate(blockedUntil));
        if (clock.mediaTime() >= blockedUntil) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(kPollStep));
    }

    ConsoleCapture& capture = runtime.platform().consoleCapture();
    // What was captured is in the system log before the process ends, but neither a console
    // that reads slowly or not at all nor a host thread that keeps writing holds the end back.
    capture.flushBeforeExit(kConsoleGrace, kFlushLimit);
    Array frames(callStackSymbols.begin(), callStackSymbols.end());
    capture.writeToOriginal(ConsoleCapture::Stream::StandardError,
                            fmt::format("\nCAUGHT EXCEPTION: {} \n\nStack Trace: {}", reason,
                                        Value(frames).description()));
}

}  // namespace tarvik
