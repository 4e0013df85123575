#pragma once

#include <tarvik/Value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tarvik {

class Image;

// Where a submission's folder lives; the status is also the name of that folder.
using TVKSubmissionStatus = std::int64_t;
inline constexpr TVKSubmissionStatus TVKSubmissionStatusProcessing = 0;
inline constexpr TVKSubmissionStatus TVKSubmissionStatusQueued = 1;
inline constexpr TVKSubmissionStatus TVKSubmissionStatusSent = 2;

// One report waiting to be sent, kept in a folder of its own so that it survives the app being
// killed:
//   <status folder>/<UUID>/httpBody.txt, retryDate.txt, metadata.plist,
//       tarvik_properties.plist, user_elapsed_times.plist,
//       user_attachments/     copies of the host's attachment files
//       tarvik_attachments/   app_icon.png, the three logs, user_defaults.json, ...
// The two kinds, issues and events, supply their type folder, endpoint and own files; the
// operations only a kind can do throw InternalInconsistencyError here.
class TVKSubmission : public std::enable_shared_from_this<TVKSubmission> {
  public:
    using CompletionHandler = std::function<void(std::shared_ptr<TVKSubmission>)>;

    virtual ~TVKSubmission() = default;
    TVKSubmission(const TVKSubmission&) = delete;
    TVKSubmission& operator=(const TVKSubmission&) = delete;

    static std::string tarvikCacheFolderPath();
    static std::string tarvikAttachmentsFolderName() { return "tarvik_attachments"; }
    static std::optional<std::string> submissionStatusFolderNameForStatus(
        TVKSubmissionStatus status);

    const std::string& uuid() const { return uuid_; }
    Date createdDate() const;
    void setCreatedDate(Date date);
    std::uint64_t retryCounter() const;
    void setRetryCounter(std::uint64_t counter);
    TVKSubmissionStatus submissionStatus() const;
    bool includeEventAttachments() const;
    void setIncludeEventAttachments(bool include);
    // Host files to copy in; none for a submission loaded from disk.
    std::optional<std::set<std::string>> urlsOfFilesToCopy() const;
    // Files already in the folder that are uploaded as file parts.
    std::optional<std::set<std::string>> urlsOfAlreadyCopiedFiles() const;
    // The files to upload: those copied in, or, for a submission loaded from disk, which has
    // no such list, every file its "tarvik_attachments" and "user_attachments" hold.
    std::set<std::string> attachedFilesUrls() const;

    // Paths. The folder paths are none while the status is not one of the three.
    std::optional<std::string> submissionFolderPath() const;
    std::optional<std::string> submissionFolderPathForStatus(TVKSubmissionStatus status) const;
    std::optional<std::string> statusFolderPathForStatus(TVKSubmissionStatus status) const;
    std::string userAttachmentsFolderPath() const;
    std::string tarvikAttachmentsFolderPath() const;
    std::string appIconFilePath() const;
    std::string userTrackingLogsFilePath() const;
    std::string systemLogsFilePath() const;
    std::string debugLogsFilePath() const;
    std::string userDefaultsFilePath() const;
    std::string httpBodyFilePath() const;
    std::string retryDateFilePath() const;
    std::string metadataFilePath() const;
    std::string tarvikPropertiesFilePath() const;
    std::string userElapsedTimesFilePath() const;
    std::string savedMetadataURL() const { return metadataFilePath(); }
    std::string savedUserPropertiesURL() const { return tarvikPropertiesFilePath(); }
    std::string savedUserElapsedTimesURL() const { return userElapsedTimesFilePath(); }

    // What only a kind of submission has.
    virtual std::string stackFilePath() const;
    virtual std::string savedEventSubmissionDataURL() const;
    virtual std::string tarvikAPIUrl() const;
    virtual void saveEventSubmissionData(const Dictionary& data);
    virtual void saveScreenshot(const Image& screenshot);
    virtual bool isEventSubmissionKind() const { return false; }
    virtual bool isIssueSubmissionKind() const { return false; }

    // Property lists, written atomically; a failed write is not reported.
    void saveMetadata(const Dictionary& metadata);
    void saveUserProperties(const Dictionary& properties);
    void saveUserElapsedTimes(const Dictionary& elapsedTimes);
    void saveApplicationIcon();
    // Remembers a host file to copy in when the files are gathered.
    void attachFileFromUrl(const std::string& fileUrl);

    // Gathers the logs, the user defaults, the caller's stack (events) and the host's files
    // into the folder on the global queue, then calls `completion` there. The stack is taken
    // on the calling thread.
    void copyAllFilesWithCompletionHandler(CompletionHandler completion);
    void copyUserAttachedFiles();
    void copyFileToTarvikAttachmentsFolder(const std::string& sourcePath);

    // Queues the submission for sending on the runtime's operation queue (which moves it to
    // Queued at once). False when it is already queued or being sent: it is not queued twice.
    bool sendSubmission();
    // Moves the folder: Processing to Queued always, Queued to Sent only in debug mode.
    void setSubmissionStatus(TVKSubmissionStatus status);
    // The service has answered for good: delete the folder (in debug mode keep it in Sent).
    void removeFromPending();
    // Replaces a file in the folder, unless the folder is gone (the submission was removed
    // meanwhile); false then, and nothing is written.
    bool replaceFileInFolder(const std::string& path, const Data& contents);

    // Pending submissions on disk, events first, then issues (Queued folders only).
    static std::vector<std::shared_ptr<TVKSubmission>> processCacheFolderForSubmissions();
    static std::vector<std::shared_ptr<TVKSubmission>> processCacheFolderForSubmissions(
        const std::string& statusFolderPath);

    // The calling thread's stack without the three innermost frames, as dictionaries with
    // "index", "lib", "code" and "app_frame".
    static Array currentStackFrames();
    // One frame line ("3   image   0x00007f...  symbol + 42") as its dictionary.
    static Dictionary stackFrameFromSymbol(const std::string& symbol, std::uint64_t index);

  protected:
    // A new submission in Processing, with a fresh upper-case UUID. Kinds call
    // createInitialSubmissionPaths once they are constructed.
    TVKSubmission();
    // A submission found on disk: Queued, no paths created, no URL sets.
    explicit TVKSubmission(std::string uuid);
    void createInitialSubmissionPaths();
    // The folder of this kind ("issues" or "events" under the cache root).
    virtual std::string submissionTypeFolderPathOfKind() const;
    void addAlreadyCopiedFile(const std::string& fileUrl);

  private:
    void gatherFiles(const Array& stackFrames);
    // The SDK's files and the host's copies that the folder holds.
    std::set<std::string> filesInFolder() const;
    void copyHostFile(const std::string& source, const std::string& destination);
    // `fileName`, or, when a file copied before took it, the name with "-2", "-3", ... before
    // its extension; the name given is added to `taken`.
    static std::string unusedFileName(const std::string& fileName, std::set<std::string>& taken);

    const std::string uuid_;
    mutable std::mutex mutex_;  // guards everything below
    Date createdDate_;
    std::uint64_t retryCounter_ = 0;
    TVKSubmissionStatus submissionStatus_;
    bool includeEventAttachments_ = false;
    std::optional<std::set<std::string>> urlsOfFilesToCopy_;
    std::optional<std::set<std::string>> urlsOfAlreadyCopiedFiles_;
};

}  // namespace tarvik
