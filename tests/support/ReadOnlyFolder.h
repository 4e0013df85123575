#pragma once

#include "support/PermissionsEnforced.h"

#include <optional>
#include <string>
#include <utility>

#include <sys/stat.h>

namespace tarvik::testsupport {

// A folder that refuses new files for the guard's lifetime, even when the tests run as root
// (the permission-override capabilities are dropped meanwhile, see PermissionsEnforced).
// `refusesNewFiles()` tells whether that worked, so a test can skip instead of passing for the
// wrong reason.
class ReadOnlyFolder {
  public:
    explicit ReadOnlyFolder(std::string path) : path_(std::move(path)) {
        ::mkdir(path_.c_str(), 0755);
        ::chmod(path_.c_str(), 0555);
        enforced_.emplace();
    }
    ~ReadOnlyFolder() {
        enforced_.reset();
        ::chmod(path_.c_str(), 0755);  // so the test's temporary tree can be removed
    }
    ReadOnlyFolder(const ReadOnlyFolder&) = delete;
    ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;

    const std::string& path() const { return path_; }

    bool refusesNewFiles() const { return folderRefusesNewFiles(path_); }

  private:
    std::string path_;
    // Held only while the folder is locked, so that its mode is changed with the thread's own
    // capabilities both ways.
    std::optional<PermissionsEnforced> enforced_;
};

}  // namespace tarvik::testsupport
