#pragma once

#include "Platform/Runtime.h"
#include "Platform/Testing/TestingPlatform.h"

#include <string>
#include <vector>

namespace tarvik::testing {

// A runtime on the Testing platform, installed as current for its lifetime, with every folder
// inside a fresh temporary tree that is deleted afterwards.
class TestRuntime {
  public:
    TestRuntime();
    ~TestRuntime();
    TestRuntime(const TestRuntime&) = delete;
    TestRuntime& operator=(const TestRuntime&) = delete;

    Runtime& runtime() { return *runtime_; }
    TestingPlatform& platform() { return *platform_; }
    const std::string& root() const { return root_; }

    void advance(double seconds) { platform_->advance(seconds); }
    void drain() { platform_->drain(); }
    std::vector<std::string> consoleLines() const { return platform_->recordingConsole().lines(); }

  private:
    std::string root_;
    TestingPlatform* platform_;
    std::unique_ptr<Runtime> runtime_;
    Runtime* previous_;
};

}  // namespace tarvik::testing
