#pragma once

#include "Models/TVKSubmission.h"

namespace tarvik {

// An event the host recorded: its data in "event_data.plist" and the caller's stack in
// "stack_trace.json", kept in "events" and sent to
// "https://<TarvikDomainName>/v1/event/save.json".
class TVKEventSubmission : public TVKSubmission {
  public:
    static std::shared_ptr<TVKEventSubmission> create();
    static std::shared_ptr<TVKEventSubmission> withUUID(const std::string& uuid);

    static std::string submissionTypeFolderPath();
    static std::string processingFolderPath();
    static std::string queuedFolderPath();
    static std::string sentFolderPath();

    std::string eventDataFilePath() const;
    std::string stackFilePath() const override;
    std::string savedEventSubmissionDataURL() const override { return eventDataFilePath(); }
    void saveEventSubmissionData(const Dictionary& data) override;
    // The "message" of the saved event data, read afresh; none when missing.
    std::optional<std::string> message() const;
    std::string tarvikAPIUrl() const override;
    bool isEventSubmissionKind() const override { return true; }

  protected:
    std::string submissionTypeFolderPathOfKind() const override;

  private:
    using TVKSubmission::TVKSubmission;
};

// The kind test of the request and the sending: an event is a submission whose endpoint is the
// event endpoint.
bool isEventSubmission(const TVKSubmission& submission);

}  // namespace tarvik
