#include "Models/TVKReportSession.h"

namespace tarvik {

std::optional<std::string> TVKReportSession::email() const {
    std::lock_guard lock(mutex_);
    return email_;
}

void TVKReportSession::setEmail(std::optional<std::string> email) {
    std::lock_guard lock(mutex_);
    email_ = std::move(email);
}

std::optional<std::string> TVKReportSession::comments() const {
    std::lock_guard lock(mutex_);
    return comments_;
}

void TVKReportSession::setComments(std::optional<std::string> comments) {
    std::lock_guard lock(mutex_);
    comments_ = std::move(comments);
}

std::shared_ptr<const Image> TVKReportSession::screenshot() const {
    std::lock_guard lock(mutex_);
    return screenshot_;
}

void TVKReportSession::setScreenshot(std::shared_ptr<const Image> screenshot) {
    std::lock_guard lock(mutex_);
    screenshot_ = std::move(screenshot);
}

}  // namespace tarvik
