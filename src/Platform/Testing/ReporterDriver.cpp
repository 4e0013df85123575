#include "Platform/Testing/ReporterDriver.h"

#include "Kit/Render/SoftwareRenderer.h"

#include <filesystem>

namespace tarvik::testing {

void ReporterDriver::open() {
    tarvik.launchIssueSubmission();
    runtime.advance(1);
}

Image ReporterDriver::screen() {
    double scale = runtime.platform().screen().scale();
    return *SoftwareRenderer::renderScreen(scale, runtime.platform().hostWindow().snapshot(scale));
}

std::vector<std::string> ReporterDriver::issuesIn(TVKDirectoryLayout::Status status) const {
    std::vector<std::string> names;
    std::filesystem::path folder =
        TVKDirectoryLayout::statusFolderPath(TVKDirectoryLayout::Kind::Issues, status);
    if (std::filesystem::exists(folder)) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
    }
    return names;
}

}  // namespace tarvik::testing
