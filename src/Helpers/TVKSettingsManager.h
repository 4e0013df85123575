#pragma once

#include <tarvik/Value.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tarvik {

// The SDK's own settings, kept across launches in "config.plist" in the "com.tarvikhq" folder
// of the application support directory. Every operation acts on the process-wide instance.
class TVKSettingsManager {
  public:
    static std::shared_ptr<TVKSettingsManager> sharedInstance();
    static std::string tarvikSettingsPath();

    static void setEventSubmissionEnabled(bool enabled);
    static bool eventSubmissionEnabled();
    static void setUserEmail(const std::optional<std::string>& email);
    static std::optional<std::string> userEmail();
    static void setPresentedInstructionCount(std::int64_t count);
    static std::int64_t presentedInstructionCount();
    static void updateLastPresentedInstructionDate();
    static std::optional<Date> lastPresentedInstructionDate();
    static std::optional<Date> firstPresentedInstructionDate();
    static bool hasCheckedForJailbrokenDevice();
    static void setJailbrokenDevice(bool jailbroken);
    static bool isJailbrokenDevice();
    // Called at start, when the store holds no settings: a file that was read but is not a
    // settings file is set aside under a new name and the defaults are written anew. A file
    // that cannot be opened at all is left as it is. Says what it did in debug mode.
    static void restoreSettingsFile();

    // Reads the file, creating it (and its folder) with its defaults in a new installation.
    TVKSettingsManager();
    // Writes the settings to the file, atomically.
    void saveSettings();
    // A copy of the settings; none when the file could not be read at creation.
    std::optional<Dictionary> tarvikSettings() const;

  private:
    mutable std::mutex mutex_;
    std::optional<Dictionary> tarvikSettings_;
};

}  // namespace tarvik
