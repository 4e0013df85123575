#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tarvik {

class Image;

// What the user entered in the reporter for one issue report, shared by the facade and the
// reporter.
class TVKReportSession {
  public:
    std::optional<std::string> email() const;
    void setEmail(std::optional<std::string> email);
    std::optional<std::string> comments() const;
    void setComments(std::optional<std::string> comments);
    std::shared_ptr<const Image> screenshot() const;
    void setScreenshot(std::shared_ptr<const Image> screenshot);

  private:
    mutable std::mutex mutex_;
    std::optional<std::string> email_;
    std::optional<std::string> comments_;
    std::shared_ptr<const Image> screenshot_;
};

}  // namespace tarvik
