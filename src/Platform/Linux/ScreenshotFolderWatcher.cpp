#include "Platform/Linux/ScreenshotFolderWatcher.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <utility>

#include <libintl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace tarvik {

namespace {

namespace fs = std::filesystem;

// A folder the screenshots land in: every change of its files matters.
constexpr std::uint32_t kFolderEvents = IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM |
                                        IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// An existing parent of a folder still missing: only its appearing children and its own end
// matter. Added to whatever the same folder is already watched for, since a folder may also be
// the parent of another (Pictures and Pictures/Screenshots), and the folder events include these.
constexpr std::uint32_t kParentEvents =
    IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_MASK_ADD;

bool isImageName(const std::string& name) {
    static const std::set<std::string> kImageExtensions = {
        "png", "jpg", "jpeg", "webp", "gif", "bmp", "tif", "tiff", "avif", "jxl", "heic"};
    auto dot = name.rfind('.');
    // Hidden names are the temporary files that tools write before renaming them into place.
    if (name.empty() || name.front() == '.' || dot == std::string::npos) {
        return false;
    }
    std::string extension = name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return kImageExtensions.count(extension) != 0;
}

// Without a trailing separator, so that a folder's path and its parents' compare as text.
std::string normalFolder(const std::string& folder) {
    fs::path path = fs::path(folder).lexically_normal();
    if (!path.has_filename() && path != path.root_path()) {
        path = path.parent_path();
    }
    return path.string();
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// A value of the user-dirs file: shell-quoted, absolute or starting with $HOME; empty when it is
// neither.
std::string userDirsValue(const std::string& raw, const std::string& home) {
    std::string value;
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] == '"') {
            continue;
        }
        if (raw[i] == '\\' && i + 1 < raw.size()) {
            ++i;
        }
        value += raw[i];
    }
    const std::string homeVariable = "$HOME";
    if (value.compare(0, homeVariable.size(), homeVariable) == 0 &&
        (value.size() == homeVariable.size() || value[homeVariable.size()] == '/')) {
        return home + value.substr(homeVariable.size());
    }
    return !value.empty() && value.front() == '/' ? value : "";
}

}  // namespace

class ScreenshotFolderWatcher::Watches {
  public:
    Watches(int inotifyFd, const std::vector<std::string>& folders,
            std::function<void()> onScreenshot)
        : fd_(inotifyFd), onScreenshot_(std::move(onScreenshot)) {
        for (const auto& folder : folders) {
            folders_.insert(normalFolder(folder));
        }
    }
    ~Watches() { ::close(fd_); }
    Watches(const Watches&) = delete;
    Watches& operator=(const Watches&) = delete;

    int fd() const { return fd_; }

    // Points the watches at the folders as they are now: each folder itself when it exists,
    // else its nearest existing parent. Trying to watch is the test of existence, so a folder
    // that vanishes meanwhile just sends the walk one level up.
    //
    // With `justCreated`, the images in a folder watched from now on count as new: the folder
    // (or its missing parent) was just made, or replaces one that just went. A tool that makes the
    // folder for its first screenshot writes it at once, before the watch on the folder is in
    // place.
    void rewatch(bool justCreated) {
        std::map<int, Watched> watched;
        for (const auto& folder : folders_) {
            bool isFolder = true;
            for (fs::path path = folder;; path = path.parent_path(), isFolder = false) {
                int wd = ::inotify_add_watch(fd_, path.c_str(),
                                             isFolder ? kFolderEvents : kParentEvents);
                if (wd >= 0) {
                    watched[wd].path = path.string();
                    watched[wd].isFolder = watched[wd].isFolder || isFolder;
                    break;
                }
                if (path == path.root_path() || !path.has_parent_path()) {
                    break;
                }
            }
        }
        for (const auto& [wd, entry] : watched_) {
            if (watched.count(wd) == 0) {
                ::inotify_rm_watch(fd_, wd);
                forgetNames(wd);
            }
        }
        std::swap(watched_, watched);  // `watched` now holds the previous watches
        if (justCreated) {
            for (const auto& [wd, entry] : watched_) {
                auto before = watched.find(wd);
                if (entry.isFolder && (before == watched.end() || !before->second.isFolder)) {
                    countImagesIn(wd, entry.path);
                }
            }
        }
    }

    // Handles every queued event; false once the descriptor fails.
    bool readEvents() {
        alignas(inotify_event) char buffer[16 * 1024];
        for (;;) {
            ssize_t length = ::read(fd_, buffer, sizeof buffer);
            if (length < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return errno == EAGAIN;
            }
            if (length == 0) {
                return false;
            }
            for (char* at = buffer; at < buffer + length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(at);
                handle(*event, event->len > 0 ? event->name : "");
                at += sizeof(inotify_event) + event->len;
            }
        }
    }

  private:
    struct Watched {
        std::string path;
        bool isFolder = false;  // else only the parent of a missing folder
    };
    using Name = std::pair<int, std::string>;  // a file in a watched folder

    void handle(const inotify_event& event, const std::string& name) {
        if (event.mask & IN_Q_OVERFLOW) {
            // Events were lost: files half-written may never be seen closing.
            beingWritten_.clear();
            rewatch(false);
            return;
        }
        auto watched = watched_.find(event.wd);
        if (watched == watched_.end()) {
            return;
        }
        if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
            // A folder already back at this path by now was made again since.
            rewatch(true);
            return;
        }
        if (event.mask & IN_ISDIR) {
            if ((event.mask & (IN_CREATE | IN_MOVED_TO)) &&
                leadsToFolder(watched->second.path + "/" + name)) {
                // A folder moved in brings old images, not screenshots.
                rewatch(event.mask & IN_CREATE);
            }
            return;
        }
        if (!watched->second.isFolder || !isImageName(name)) {
            return;
        }
        Name file{event.wd, name};
        if (event.mask & IN_CREATE) {
            if (countedByScan_.erase(file) == 0) {
                beingWritten_.insert(file);
            }
        } else if (event.mask & IN_CLOSE_WRITE) {
            // Only a file that was new: closing an existing one after writing is an edit.
            if (beingWritten_.erase(file) != 0) {
                onScreenshot_();
            }
        } else if (event.mask & IN_MOVED_TO) {
            beingWritten_.erase(file);
            if (countedByScan_.erase(file) == 0) {
                onScreenshot_();
            }
        } else if (event.mask & (IN_DELETE | IN_MOVED_FROM)) {
            beingWritten_.erase(file);
            countedByScan_.erase(file);
        }
    }

    bool leadsToFolder(const std::string& path) const {
        return std::any_of(folders_.begin(), folders_.end(), [&](const std::string& folder) {
            return folder == path || folder.compare(0, path.size() + 1, path + "/") == 0;
        });
    }

    // Counts the images of a folder just made. Their creation may also be queued already; such
    // an event is then skipped by remembering the name until it arrives or the file goes.
    void countImagesIn(int wd, const std::string& folder) {
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            std::string name = entry->path().filename().string();
            if (isImageName(name) && entry->is_regular_file(error)) {
                countedByScan_.insert({wd, name});
                onScreenshot_();
            }
        }
    }

    void forgetNames(int wd) {
        std::erase_if(beingWritten_, [wd](const Name& file) { return file.first == wd; });
        std::erase_if(countedByScan_, [wd](const Name& file) { return file.first == wd; });
    }

    const int fd_;
    const std::function<void()> onScreenshot_;
    std::set<std::string> folders_;
    std::map<int, Watched> watched_;
    std::set<Name> beingWritten_;   // created and not yet closed
    std::set<Name> countedByScan_;  // counted when their folder appeared
};

std::string ScreenshotFolderWatcher::picturesFolder(const std::string& userDirsText,
                                                    const std::string& home) {
    const std::string key = "XDG_PICTURES_DIR=";
    std::string folder;
    std::istringstream lines(userDirsText);
    // The file is shell syntax: a later assignment wins.
    for (std::string line; std::getline(lines, line);) {
        auto start = line.find_first_not_of(" \t");
        if (start != std::string::npos && line.compare(start, key.size(), key) == 0) {
            std::string value = line.substr(start + key.size());
            value.erase(value.find_last_not_of(" \t\r") + 1);
            folder = userDirsValue(value, home);
        }
    }
    // A pictures folder set to the home folder itself is disabled. We then fall back on
    // ~/Pictures rather than watch the home folder, where every image downloaded or saved would
    // open the reporter.
    if (folder.empty() || normalFolder(folder) == normalFolder(home)) {
        return (fs::path(home) / "Pictures").string();
    }
    return normalFolder(folder);
}

std::vector<std::string> ScreenshotFolderWatcher::defaultFolders() {
    std::string home = environment("HOME");
    if (home.empty()) {
        return {};  // no home, no pictures folder to guess
    }
    std::string configHome = environment("XDG_CONFIG_HOME");
    if (configHome.empty() || configHome.front() != '/') {
        configHome = home + "/.config";
    }
    std::ifstream userDirs(configHome + "/user-dirs.dirs");
    std::stringstream text;
    text << userDirs.rdbuf();
    fs::path pictures = picturesFolder(text.str(), home);
    std::vector<std::string> folders = {pictures.string(), (pictures / "Screenshots").string()};
    // The desktop shell saves into this folder under the name its own translation gives it, in
    // the language of the host's locale (as set by the host's setlocale).
    std::string localised = ::dgettext("gnome-shell", "Screenshots");
    if (localised != "Screenshots" && !localised.empty()) {
        folders.push_back((pictures / localised).string());
    }
    return folders;
}

ScreenshotFolderWatcher::ScreenshotFolderWatcher(std::vector<std::string> folders)
    : folders_(std::move(folders)) {}

void ScreenshotFolderWatcher::watch(std::function<void()> didTakeScreenshot) {
    thread_.start(std::move(didTakeScreenshot), [this]() -> WatchThread::Loop {
        // Without inotify nothing is watched: screenshots then never open the reporter, and the
        // host is not told.
        int inotifyFd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (inotifyFd < 0) {
            return nullptr;
        }
        auto watches = std::make_shared<Watches>(inotifyFd, folders_, [this] { thread_.notify(); });
        // Watched before returning, so that a screenshot taken right after this call is seen.
        watches->rewatch(false);
        return [watches](int wakeFd) { run(*watches, wakeFd); };
    });
}

void ScreenshotFolderWatcher::run(Watches& watches, int wakeFd) {
    pollfd watched[2] = {{watches.fd(), POLLIN, 0}, {wakeFd, POLLIN, 0}};
    for (;;) {
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        // Events already queued are handled before a wake-up to stop is heeded: a screenshot
        // taken before stop() still counts.
        if ((watched[0].revents & (POLLERR | POLLNVAL)) ||
            ((watched[0].revents & POLLIN) && !watches.readEvents())) {
            break;
        }
        if (watched[1].revents != 0) {
            break;
        }
    }
}

}  // namespace tarvik
