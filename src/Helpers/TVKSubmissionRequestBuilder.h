#pragma once

#include <tarvik/Value.h>

#include "Platform/HttpRequest.h"

#include <memory>
#include <optional>
#include <string>

namespace tarvik {

class TVKSubmission;

// Turns a stored submission into a POST of a multipart/form-data body to its endpoint. The
// body is spooled into the submission's "httpBody.txt" the first time and never rewritten,
// so every retry, even after a restart, sends the same bytes; files are appended file to file
// and the whole body is never held in memory.
//
// Body, every line ending in CR LF, with B = "----TarvikBoundaryText":
//   --B / Content-Disposition: form-data; name="N" / (blank) / value            a field
//   --B / ...; name="N"; filename="F" / Content-Type: T / (blank) / bytes       a file
//   --B--                                                                        the end
// Fields in order: the submission's details, user properties, device information, elapsed
// times ("benchmark[K]"), metadata ("metadata[K]"), then the files.
class TVKSubmissionRequestBuilder {
  public:
    static constexpr const char* kMultipartBoundary = "----TarvikBoundaryText";

    explicit TVKSubmissionRequestBuilder(std::shared_ptr<TVKSubmission> submission);
    ~TVKSubmissionRequestBuilder();
    TVKSubmissionRequestBuilder(const TVKSubmissionRequestBuilder&) = delete;
    TVKSubmissionRequestBuilder& operator=(const TVKSubmissionRequestBuilder&) = delete;

    // Writes the body if the spool file is still empty, then builds the request.
    HttpRequest buildPOSTSubmissionRequest();

    bool isEventSubmission() const;
    // Whether the file is one the SDK produced (it lies in this submission's
    // "tarvik_attachments"); those are never cut off by the size limit.
    bool isTarvikFile(const std::string& fileUrl) const;
    static std::string buildHttpBodyEntryWithName(const std::string& name,
                                                  const std::string& value);
    // The MIME type of a file-name extension; "application/octet-stream" when unknown.
    static std::string contentTypeByFileExtension(const std::string& extension);

  private:
    void addDataToHttpBody();
    void writeBodyUnlessWhole();
    // Whether the spool ends with the closing boundary.
    bool hasCompleteBody() const;
    void addSubmissionDetailsWith(const Dictionary& properties);
    void addUserPropertiesWith(const Dictionary& properties);
    void addDeviceInformation();
    void addUserElapsedTimes();
    void addMetadata();
    void addAllAttachedFiles();
    void zipThenAttachDataToHttpBodyFromFileUrl(const std::string& fileUrl);
    void attachDataToHttpBodyFromFileUrl(const std::string& fileUrl);
    void addField(const std::string& name, const std::string& value);
    void addFieldsFromPropertyList(const std::string& path, const std::string& fieldFormat);
    void appendString(const std::string& text);
    std::int64_t statusBarOrientationFromMainQueue() const;

    std::shared_ptr<TVKSubmission> submission_;
    int httpDataAppender_ = -1;  // descriptor on "httpBody.txt" (appending) while writing it
    std::string attachedFileHeaderLine_;
    std::string currentAttachingFileName_;
};

}  // namespace tarvik
