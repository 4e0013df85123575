#pragma once

#include <string>
#include <utility>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tarvik::testsupport {

// A folder that refuses new files for the guard's lifetime, even when the tests run as root:
// the permission-override capabilities are taken out of this thread's effective set and put
// back afterwards. `refusesNewFiles()` tells whether that worked, so a test can skip instead of
// passing for the wrong reason.
class ReadOnlyFolder {
  public:
    explicit ReadOnlyFolder(std::string path) : path_(std::move(path)) {
        ::mkdir(path_.c_str(), 0755);
        ::chmod(path_.c_str(), 0555);
        if (::syscall(SYS_capget, &header_, saved_) != 0) {
            return;
        }
        __user_cap_data_struct reduced[2] = {saved_[0], saved_[1]};
        for (int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
            reduced[capability / 32].effective &= ~(1u << (capability % 32));
        }
        capabilitiesReduced_ = ::syscall(SYS_capset, &header_, reduced) == 0;
    }
    ~ReadOnlyFolder() {
        if (capabilitiesReduced_) {
            ::syscall(SYS_capset, &header_, saved_);
        }
        ::chmod(path_.c_str(), 0755);  // so the test's temporary tree can be removed
    }
    ReadOnlyFolder(const ReadOnlyFolder&) = delete;
    ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;

    const std::string& path() const { return path_; }

    bool refusesNewFiles() const {
        std::string probe = path_ + "/probe";
        int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        if (fd < 0) {
            return true;
        }
        ::close(fd);
        ::unlink(probe.c_str());
        return false;
    }

  private:
    std::string path_;
    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct saved_[2]{};
    bool capabilitiesReduced_ = false;
};

}  // namespace tarvik::testsupport
