#include "Platform/AtomicWrite.h"

#include <cstdio>
#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

namespace tarvik {

bool writeBytesAtomically(std::string_view bytes, const std::string& path) {
    std::string temporary = path + ".tmp-XXXXXX";
    int fd = mkstemp(temporary.data());
    if (fd < 0) {
        return false;
    }
    bool written = true;
    for (size_t offset = 0; offset < bytes.size();) {
        ssize_t n = ::write(fd, bytes.data() + offset, bytes.size() - offset);
        if (n < 0) {
            written = false;
            break;
        }
        offset += static_cast<size_t>(n);
    }
    // Files the SDK writes are the user's ordinary files, not private temporaries.
    written = written && ::fchmod(fd, 0644) == 0;
    written = ::close(fd) == 0 && written;
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace tarvik
