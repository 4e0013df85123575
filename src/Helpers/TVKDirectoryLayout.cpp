#include "Helpers/TVKDirectoryLayout.h"

#include "Platform/Runtime.h"

namespace tarvik {

std::string TVKDirectoryLayout::cacheFolderPath() {
    return Runtime::current().folders().cachesDirectory() + "/com.tarvikhq.cache";
}

std::string TVKDirectoryLayout::tempLogsDirectory() {
    return cacheFolderPath() + "/temp_logs";
}

std::string TVKDirectoryLayout::typeFolderPath(Kind kind) {
    return cacheFolderPath() + (kind == Kind::Issues ? "/issues" : "/events");
}

std::string TVKDirectoryLayout::statusFolderName(Status status) {
    switch (status) {
        case Status::Processing:
            return "Processing";
        case Status::Queued:
            return "Queued";
        case Status::Sent:
            return "Sent";
    }
    return "Processing";
}

std::string TVKDirectoryLayout::statusFolderPath(Kind kind, Status status) {
    return typeFolderPath(kind) + "/" + statusFolderName(status);
}

std::string TVKDirectoryLayout::settingsFolderPath() {
    return Runtime::current().folders().applicationSupportDirectory() + "/com.tarvikhq";
}

std::string TVKDirectoryLayout::settingsFilePath() {
    return settingsFolderPath() + "/config.plist";
}

}  // namespace tarvik
