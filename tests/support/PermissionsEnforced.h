#pragma once

#include <string>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tarvik::testsupport {

// Makes file permissions apply to this thread even when the tests run as root, by taking the
// permission-override capabilities out of its effective set for the guard's lifetime.
class PermissionsEnforced {
  public:
    PermissionsEnforced() {
        if (::syscall(SYS_capget, &header_, saved_) != 0) {
            return;
        }
        __user_cap_data_struct reduced[2] = {saved_[0], saved_[1]};
        for (int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
            reduced[capability / 32].effective &= ~(1u << (capability % 32));
        }
        changed_ = ::syscall(SYS_capset, &header_, reduced) == 0;
    }
    ~PermissionsEnforced() {
        if (changed_) {
            ::syscall(SYS_capset, &header_, saved_);
        }
    }
    PermissionsEnforced(const PermissionsEnforced&) = delete;
    PermissionsEnforced& operator=(const PermissionsEnforced&) = delete;

  private:
    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct saved_[2]{};
    bool changed_ = false;
};

// Whether creating a file in the folder fails. Where the capabilities cannot be dropped it
// does not, and a permission test skips instead of passing for the wrong reason.
inline bool folderRefusesNewFiles(const std::string& folder) {
    std::string probe = folder + "/probe";
    int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (fd < 0) {
        return true;
    }
    ::close(fd);
    ::unlink(probe.c_str());
    return false;
}

}  // namespace tarvik::testsupport
