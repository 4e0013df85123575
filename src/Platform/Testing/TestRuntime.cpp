#include "Platform/Testing/TestRuntime.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace tarvik::testing {

namespace {
std::string makeTemporaryRoot() {
    std::string base = std::filesystem::temp_directory_path().string() + "/tarvik-test-XXXXXX";
    if (!mkdtemp(base.data())) {
        throw std::runtime_error("cannot make a temporary folder for the test");
    }
    return base;
}
}  // namespace

TestRuntime::TestRuntime() : root_(makeTemporaryRoot()) {
    auto platform = std::make_unique<TestingPlatform>(root_);
    platform_ = platform.get();
    runtime_ = std::make_unique<Runtime>(std::move(platform));
    previous_ = Runtime::exchangeCurrent(runtime_.get());
    Runtime* runtime = runtime_.get();
    platform_->setExtraBackgroundWork({
        .isIdle =
            [runtime] {
                return runtime->operationQueue().operationCount() == 0 &&
                       runtime->detachedThreadCount() == 0;
            },
        .submitted =
            [runtime] {
                return runtime->operationQueue().workSubmitted() +
                       runtime->detachedThreadsStarted();
            },
    });
}

TestRuntime::~TestRuntime() {
    runtime_.reset();
    Runtime::exchangeCurrent(previous_);
    std::error_code ignored;
    // Folders a test made read-only must become writable again to be removed.
    for (auto it = std::filesystem::recursive_directory_iterator(
             root_, std::filesystem::directory_options::skip_permission_denied, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ignored);
        }
    }
    std::filesystem::permissions(root_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(root_, ignored);
}

}  // namespace tarvik::testing
