#pragma once

#include "Platform/UserScreenshots.h"

#include <functional>
#include <string>
#include <vector>

namespace tarvik {

// Notices the desktop's screenshots: a new image file that appears in one of the folders where
// screenshot tools save (created and closed, renamed into place, or moved in). Folders that do
// not exist yet are watched from their nearest existing parent until they appear.
class ScreenshotFolderWatcher : public UserScreenshots {
  public:
    // The user's pictures folder (XDG_PICTURES_DIR of the user-dirs file, else ~/Pictures) and
    // its "Screenshots" subfolder, under its English and its localised name.
    static std::vector<std::string> defaultFolders();

    explicit ScreenshotFolderWatcher(std::vector<std::string> folders);
    ~ScreenshotFolderWatcher() override;
    ScreenshotFolderWatcher(const ScreenshotFolderWatcher&) = delete;
    ScreenshotFolderWatcher& operator=(const ScreenshotFolderWatcher&) = delete;

    void watch(std::function<void()> didTakeScreenshot) override;
    // Ends the watching; safe to call more than once.
    void stop();

  private:
    std::vector<std::string> folders_;
};

}  // namespace tarvik
