#pragma once

#include <tarvik/Value.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tarvik {

// When the host dies of an uncaught exception, lets the last console output reach the system
// log and prints the exception to the real console. It writes no report and sends nothing.
class TVKExceptionHelper {
  public:
    static constexpr double kQuietPeriod = 1.0;  // seconds without standard-error output
    static constexpr double kPollStep = 0.5;
    // After the quiet period, how much longer the real console may take to accept the echo of
    // what was captured, and how long the captured output may take to reach the system log.
    static constexpr double kConsoleGrace = 0.5;
    static constexpr double kFlushLimit = 2.0;

    static std::shared_ptr<TVKExceptionHelper> sharedInstance();

    // Installs the process-wide handler for uncaught C++ exceptions (std::set_terminate) on
    // every thread, replacing any the host had set.
    static void configureCrashHandler();

    // Waits until standard error has been quiet for a second (checking twice a second), lets
    // what was captured reach the system log (a console that does not keep up gets no more of
    // it after kConsoleGrace, and the log no more after kFlushLimit), then prints
    // "\nCAUGHT EXCEPTION: <reason> \n\nStack Trace: (...)" to the real standard error.
    static void crashHandler(const std::string& reason,
                             const std::vector<std::string>& callStackSymbols);

    Date crashHandlerBlockedDate() const;

  private:
    void setCrashHandlerBlockedDate(Date date);

    mutable std::mutex mutex_;
    Date crashHandlerBlockedDate_{};
};

}  // namespace tarvik
