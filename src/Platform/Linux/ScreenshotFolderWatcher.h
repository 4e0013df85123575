#pragma once

#include "Platform/Linux/WatchThread.h"
#include "Platform/UserScreenshots.h"

#include <functional>
#include <string>
#include <vector>

namespace tarvik {

// Notices the desktop's screenshots: a new image file that appears in one of the folders where
// screenshot tools save (created and closed, renamed into place, or moved in). Folders that do
// not exist yet are watched from their nearest existing parent until they appear.
//
// Where inotify cannot start, nothing is watched and no screenshot is ever noticed; that is not
// an error.
class ScreenshotFolderWatcher : public UserScreenshots {
  public:
    // The user's pictures folder (XDG_PICTURES_DIR of the user-dirs file, else ~/Pictures) and
    // its "Screenshots" subfolder, under its English and its localised name.
    static std::vector<std::string> defaultFolders();
    // The pictures folder named by the text of a user-dirs file, with `$HOME` standing for
    // `home`; `home`/Pictures when the file names none or disables it.
    static std::string picturesFolder(const std::string& userDirsText, const std::string& home);

    explicit ScreenshotFolderWatcher(std::vector<std::string> folders);

    // Starts the watching thread, or, when already watching, only replaces the callback. After
    // stop() it starts watching again.
    void watch(std::function<void()> didTakeScreenshot) override;
    // Ends the watching; safe to call more than once.
    void stop() { thread_.stop(); }

  private:
    class Watches;  // the inotify descriptor and what it watches; the thread's alone

    static void run(Watches& watches, int wakeFd);

    const std::vector<std::string> folders_;
    WatchThread thread_;
};

}  // namespace tarvik
