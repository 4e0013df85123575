#pragma once

#include "Models/TVKSubmission.h"

namespace tarvik {

// A report from the reporter: a screenshot with the user's comments and e-mail address, kept in
// "issues" and sent to "https://<TarvikDomainName>/v1/issue/create.json".
class TVKIssueSubmission : public TVKSubmission {
  public:
    // A new issue in Processing, with its folder, attachment folders and empty body file.
    static std::shared_ptr<TVKIssueSubmission> create();
    // An issue found in the Queued folder.
    static std::shared_ptr<TVKIssueSubmission> withUUID(const std::string& uuid);

    static std::string submissionTypeFolderPath();
    static std::string processingFolderPath();
    static std::string queuedFolderPath();
    static std::string sentFolderPath();

    std::optional<std::string> emailAddress() const;
    void setEmailAddress(std::optional<std::string> email);
    std::optional<std::string> comments() const;
    void setComments(std::optional<std::string> comments);
    bool finishedCopyingFiles() const;
    void setFinishedCopyingFiles(bool finished);

    std::string screenshotFilePath() const;
    // Writes the screenshot as JPEG at quality 0.7 to "screenshot.jpg".
    void saveScreenshot(const Image& screenshot) override;
    std::string tarvikAPIUrl() const override;
    bool isIssueSubmissionKind() const override { return true; }

  protected:
    std::string submissionTypeFolderPathOfKind() const override;

  private:
    using TVKSubmission::TVKSubmission;

    mutable std::mutex issueMutex_;
    std::optional<std::string> emailAddress_;
    std::optional<std::string> comments_;
    bool finishedCopyingFiles_ = false;
};

}  // namespace tarvik
