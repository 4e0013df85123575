#include "Platform/Linux/ScreenshotFolderWatcher.h"

#include "support/Files.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <optional>

#include <gtest/gtest.h>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testsupport::writeFile;

// Counts the watcher's calls, which come on its own thread.
class CallCounter {
  public:
    std::function<void()> callback() {
        return [this] {
            std::lock_guard lock(mutex_);
            ++calls_;
            changed_.notify_all();
        };
    }
    // Waits, with a deadline far above any real delay, for at least `calls` calls.
    bool reaches(int calls) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(5), [&] { return calls_ >= calls; });
    }
    int calls() {
        std::lock_guard lock(mutex_);
        return calls_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int calls_ = 0;
};

// A temporary root for the folders, removed afterwards. What must not be reported is checked
// after stop(): the watcher handles the events already queued before it ends, so by then every
// file operation of the test has been seen.
class ScreenshotFolderWatch : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "tarvik-shots-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        root_ = name;
    }
    void TearDown() override {
        watcher_.reset();
        fs::remove_all(root_);
    }

    ScreenshotFolderWatcher& watch(std::vector<std::string> folders) {
        watcher_.emplace(std::move(folders));
        watcher_->watch(counter_.callback());
        return *watcher_;
    }
    std::string path(const std::string& relative) const { return (root_ / relative).string(); }

    fs::path root_;
    CallCounter counter_;
    std::optional<ScreenshotFolderWatcher> watcher_;
};

TEST_F(ScreenshotFolderWatch, ANewImageWrittenOrRenamedIntoPlaceCountsOnce) {
    fs::create_directory(path("shots"));
    auto& watcher = watch({path("shots")});
    writeFile(path("shots/Screenshot 1.PNG"), "image");
    ASSERT_TRUE(counter_.reaches(1));
    // A tool that writes a hidden file first and renames it.
    writeFile(path("shots/.goutputstream-K2J4Z1"), "image");
    fs::rename(path("shots/.goutputstream-K2J4Z1"), path("shots/Screenshot 2.jpeg"));
    ASSERT_TRUE(counter_.reaches(2));
    // An image moved in from elsewhere.
    writeFile(path("elsewhere.webp"), "image");
    fs::rename(path("elsewhere.webp"), path("shots/moved.webp"));
    ASSERT_TRUE(counter_.reaches(3));
    watcher.stop();
    EXPECT_EQ(counter_.calls(), 3);
}

TEST_F(ScreenshotFolderWatch, OtherFilesEditsAndParentsDoNotCount) {
    fs::create_directory(path("shots"));
    writeFile(path("shots/old.png"), "image");
    auto& watcher = watch({path("shots"), path("missing/Screenshots")});
    writeFile(path("shots/notes.txt"), "text");
    writeFile(path("shots/.hidden.png"), "image");
    writeFile(path("shots/old.png"), "edited");  // an existing image rewritten
    writeFile(path("in-parent.png"), "image");   // the parent of a missing folder
    writeFile(path("shots/.part"), "image");
    fs::rename(path("shots/.part"), path("moved-to-parent.png"));
    fs::create_directory(path("shots/album.png"));  // a folder, whatever its name
    writeFile(path("shots/new.gif"), "image");
    ASSERT_TRUE(counter_.reaches(1));
    watcher.stop();
    EXPECT_EQ(counter_.calls(), 1);
}

TEST_F(ScreenshotFolderWatch, FoldersMissingAtStartAreSeenWhenCreatedAndRecreated) {
    auto& watcher = watch({path("pictures/Screenshots")});
    // Made with its missing parent and written at once, as a tool does for its first screenshot.
    fs::create_directories(path("pictures/Screenshots"));
    writeFile(path("pictures/Screenshots/first.png"), "image");
    ASSERT_TRUE(counter_.reaches(1));
    fs::remove_all(path("pictures/Screenshots"));
    fs::create_directory(path("pictures/Screenshots"));
    writeFile(path("pictures/Screenshots/again.png"), "image");
    ASSERT_TRUE(counter_.reaches(2));
    watcher.stop();
    EXPECT_EQ(counter_.calls(), 2);
}

TEST_F(ScreenshotFolderWatch, WatchesEveryFolder) {
    fs::create_directories(path("pictures/Screenshots"));
    auto& watcher = watch({path("pictures"), path("pictures/Screenshots/")});
    writeFile(path("pictures/a.png"), "image");
    ASSERT_TRUE(counter_.reaches(1));
    writeFile(path("pictures/Screenshots/b.png"), "image");
    ASSERT_TRUE(counter_.reaches(2));
    watcher.stop();
    EXPECT_EQ(counter_.calls(), 2);
}

TEST_F(ScreenshotFolderWatch, StopEndsTheWatchAndWatchRestartsIt) {
    fs::create_directory(path("shots"));
    auto& watcher = watch({path("shots")});
    watcher.stop();
    watcher.stop();
    writeFile(path("shots/unseen.png"), "image");
    CallCounter restarted;
    watcher.watch(restarted.callback());
    writeFile(path("shots/seen.png"), "image");
    ASSERT_TRUE(restarted.reaches(1));
    watcher.stop();
    EXPECT_EQ(restarted.calls(), 1);
    EXPECT_EQ(counter_.calls(), 0);
}

TEST(ScreenshotFolderUserDirs, PicturesFolder) {
    const std::string home = "/home/ana";
    auto pictures = [&](const std::string& text) {
        return ScreenshotFolderWatcher::picturesFolder(text, home);
    };
    EXPECT_EQ(pictures("# written by the desktop\n"
                       "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                       "XDG_PICTURES_DIR=\"$HOME/Bilder\"\n"),
              "/home/ana/Bilder");
    EXPECT_EQ(pictures("XDG_PICTURES_DIR=\"/srv/photos/\"\n"), "/srv/photos");
    EXPECT_EQ(pictures("XDG_PICTURES_DIR=\"$HOME/My \\\"Pics\\\"\""), "/home/ana/My \"Pics\"");
    EXPECT_EQ(pictures("# XDG_PICTURES_DIR=\"$HOME/Commented\"\n"), "/home/ana/Pictures");
    EXPECT_EQ(pictures("XDG_MUSIC_DIR=\"$HOME/Music\"\n"), "/home/ana/Pictures");
    EXPECT_EQ(pictures(""), "/home/ana/Pictures");
    EXPECT_EQ(pictures("XDG_PICTURES_DIR=\"$HOMEWORK\"\n"), "/home/ana/Pictures");
    EXPECT_EQ(pictures("XDG_PICTURES_DIR=\"relative\"\n"), "/home/ana/Pictures");
    // Set to the home folder itself: disabled, and the home folder is never watched.
    EXPECT_EQ(pictures("XDG_PICTURES_DIR=\"$HOME/\"\n"), "/home/ana/Pictures");
    // Shell syntax: the last assignment wins.
    EXPECT_EQ(pictures("XDG_PICTURES_DIR=\"$HOME/A\"\nXDG_PICTURES_DIR=\"$HOME/B\"\n"),
              "/home/ana/B");
}

TEST(ScreenshotFolderUserDirs, DefaultFoldersReadTheConfigurationHome) {
    std::string root = (fs::temp_directory_path() / "tarvik-home-XXXXXX").string();
    ASSERT_NE(::mkdtemp(root.data()), nullptr);
    fs::create_directory(root + "/config");
    writeFile(root + "/config/user-dirs.dirs", "XDG_PICTURES_DIR=\"$HOME/Fotos\"\n");
    auto saved = [](const char* name) -> std::optional<std::string> {
        const char* value = std::getenv(name);
        return value ? std::optional<std::string>(value) : std::nullopt;
    };
    auto home = saved("HOME"), configHome = saved("XDG_CONFIG_HOME");
    ::setenv("HOME", root.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (root + "/config").c_str(), 1);
    auto folders = ScreenshotFolderWatcher::defaultFolders();
    for (auto& [name, value] :
         {std::pair{"HOME", home}, std::pair{"XDG_CONFIG_HOME", configHome}}) {
        value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
    }
    fs::remove_all(root);
    // The test runs in the C locale, where the folder has no other name.
    EXPECT_EQ(folders, (std::vector<std::string>{root + "/Fotos", root + "/Fotos/Screenshots"}));
}

}  // namespace
}  // namespace tarvik
