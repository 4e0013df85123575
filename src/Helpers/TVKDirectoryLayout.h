#pragma once

#include <string>

namespace tarvik {

// Where the SDK keeps its files, in one place:
//
//   <caches>/com.tarvikhq.cache/temp_logs                      the library's logs
//   <caches>/com.tarvikhq.cache/{issues,events}/{Processing,Queued,Sent}/<uuid>
//   <application support>/com.tarvikhq/config.plist            the settings
class TVKDirectoryLayout {
  public:
    enum class Kind { Issues, Events };
    enum class Status { Processing = 0, Queued = 1, Sent = 2 };

    static std::string cacheFolderPath();
    static std::string tempLogsDirectory();
    static std::string typeFolderPath(Kind kind);
    static std::string statusFolderPath(Kind kind, Status status);
    static std::string statusFolderName(Status status);
    static std::string settingsFolderPath();
    static std::string settingsFilePath();
};

}  // namespace tarvik
