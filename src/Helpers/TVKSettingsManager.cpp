#include "Helpers/TVKSettingsManager.h"

#include "Helpers/TVKDirectoryLayout.h"
#include "Platform/PropertyList.h"
#include "Platform/Runtime.h"
#include "Public/DebugConsole.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace tarvik {

namespace {

constexpr const char* kEventFeatureEnabledKey = "eventFeatureEnabled";
// The defaults of a new file carry this spelling, the counter's accessors the correct one.
// Both are part of the file format: files of earlier installations must read the same.
constexpr const char* kDefaultInstructionCountKey = "presentedIntructionCount";
constexpr const char* kPresentedInstructionCountKey = "presentedInstructionCount";
constexpr const char* kLastPresentedInstructionDateKey = "lastPresentedInstructionDate";
constexpr const char* kFirstPresentedInstructionDateKey = "firstPresentedInstructionDate";
constexpr const char* kUserEmailKey = "userEmail";
constexpr const char* kJailbrokenDeviceKey = "isJailbrokenDevice";

constexpr std::int64_t kLargestPresentedInstructionCount = 3;

// The file's bytes; none when it is missing, is not a regular file or cannot be opened.
std::optional<std::string> readBytes(const std::string& path) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) {
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Bytes that are empty, not a property list or hold anything but a dictionary at the top are
// not a settings file.
std::optional<Dictionary> settingsIn(const std::string& bytes) {
    std::optional<Value> contents = plist::parse(bytes);
    if (!contents || !contents->isDictionary()) {
        return std::nullopt;
    }
    return *contents->asDictionary();
}

// Failures are silent: the settings stay in memory and reach the disk with the next save.
void writeSettingsFile(const std::optional<Dictionary>& settings) {
    if (settings) {
        plist::writeFileAtomically(Value(*settings), TVKSettingsManager::tarvikSettingsPath());
    }
}

// The settings in the file, which is created with the defaults when there is none. Read back
// even after creating it, so that a file that could not be written leaves the store without
// settings rather than with settings that exist only in memory.
std::optional<Dictionary> loadSettingsFile() {
    std::string path = TVKSettingsManager::tarvikSettingsPath();
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        Date now = Runtime::current().clock().now();
        Dictionary defaults;
        defaults[kEventFeatureEnabledKey] = true;
        defaults[kDefaultInstructionCountKey] = 0;
        defaults[kLastPresentedInstructionDateKey] = now;
        defaults[kFirstPresentedInstructionDateKey] = now;
        writeSettingsFile(defaults);
    }
    std::optional<std::string> bytes = readBytes(path);
    return bytes ? settingsIn(*bytes) : std::nullopt;
}

// Renames the file to the first free "config.plist.unreadable-N" beside it, never over an
// earlier one, and gives that name; none when the rename failed.
std::optional<std::string> setAside(const std::string& path) {
    for (int number = 1;; ++number) {
        std::string candidate = path + ".unreadable-" + std::to_string(number);
        std::error_code error;
        bool taken = std::filesystem::exists(candidate, error);
        if (error) {
            return std::nullopt;
        }
        if (taken) {
            continue;
        }
        std::filesystem::rename(path, candidate, error);
        if (error) {
            return std::nullopt;
        }
        return std::filesystem::path(candidate).filename().string();
    }
}

const Value* storedValue(const std::optional<Dictionary>& settings, const std::string& key) {
    if (!settings) {
        return nullptr;
    }
    auto it = settings->find(key);
    return it == settings->end() ? nullptr : &it->second;
}

// Without settings every write is lost.
void storeValue(std::optional<Dictionary>& settings, const std::string& key, Value value) {
    if (settings) {
        (*settings)[key] = std::move(value);
    }
}

std::optional<Date> storedDate(const std::optional<Dictionary>& settings, const std::string& key) {
    const Value* value = storedValue(settings, key);
    if (!value || !value->isDate()) {
        return std::nullopt;
    }
    return *value->asDate();
}

bool storedBool(const std::optional<Dictionary>& settings, const std::string& key) {
    const Value* value = storedValue(settings, key);
    return value && value->boolValue();
}

}  // namespace

std::shared_ptr<TVKSettingsManager> TVKSettingsManager::sharedInstance() {
    return Runtime::current().sharedInstance<TVKSettingsManager>();
}

std::string TVKSettingsManager::tarvikSettingsPath() {
    return TVKDirectoryLayout::settingsFilePath();
}

TVKSettingsManager::TVKSettingsManager() {
    // Start-up makes the folder too; making it here as well keeps the settings that a host
    // gives before the start of a first launch, and the event feature on for that launch.
    std::error_code ignored;
    std::filesystem::create_directories(TVKDirectoryLayout::settingsFolderPath(), ignored);
    tarvikSettings_ = loadSettingsFile();
}

void TVKSettingsManager::restoreSettingsFile() {
    auto manager = sharedInstance();
    std::string path = tarvikSettingsPath();
    std::optional<std::string> setAsideName;
    bool restored = false;
    {
        std::lock_guard lock(manager->mutex_);
        if (manager->tarvikSettings_) {
            return;
        }
        // A file that cannot be opened (its permissions) may hold good settings: it is left
        // alone. One that was read and holds no settings is damaged, and is kept aside.
        if (std::optional<std::string> bytes = readBytes(path); bytes && !settingsIn(*bytes)) {
            setAsideName = setAside(path);
        }
        manager->tarvikSettings_ = loadSettingsFile();
        restored = manager->tarvikSettings_.has_value();
    }
    if (!restored) {
        logToConsoleIfDebug("Tarvik -- cannot read or write the settings file " + path +
                            ": events stay off and settings are not kept for this launch");
    } else if (setAsideName) {
        logToConsoleIfDebug("Tarvik -- the settings file could not be read; it was kept as " +
                            *setAsideName + " and written anew with its defaults");
    }
}

void TVKSettingsManager::saveSettings() {
    std::lock_guard lock(mutex_);
    writeSettingsFile(tarvikSettings_);
}

std::optional<Dictionary> TVKSettingsManager::tarvikSettings() const {
    std::lock_guard lock(mutex_);
    return tarvikSettings_;
}

// Each operation holds the lock across its change and its save, so that saves from different
// threads reach the disk in the order of the changes and never write a half-made change.

void TVKSettingsManager::setEventSubmissionEnabled(bool enabled) {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    if (storedBool(manager->tarvikSettings_, kEventFeatureEnabledKey) == enabled) {
        return;
    }
    storeValue(manager->tarvikSettings_, kEventFeatureEnabledKey, enabled);
    writeSettingsFile(manager->tarvikSettings_);
}

bool TVKSettingsManager::eventSubmissionEnabled() {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    return storedBool(manager->tarvikSettings_, kEventFeatureEnabledKey);
}

void TVKSettingsManager::setUserEmail(const std::optional<std::string>& email) {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    if (!email) {
        if (manager->tarvikSettings_) {
            manager->tarvikSettings_->erase(kUserEmailKey);
        }
    } else {
        storeValue(manager->tarvikSettings_, kUserEmailKey, *email);
    }
    writeSettingsFile(manager->tarvikSettings_);
}

std::optional<std::string> TVKSettingsManager::userEmail() {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    const Value* email = storedValue(manager->tarvikSettings_, kUserEmailKey);
    if (!email || !email->isString()) {
        return std::nullopt;
    }
    return *email->asString();
}

void TVKSettingsManager::setPresentedInstructionCount(std::int64_t count) {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    storeValue(manager->tarvikSettings_, kPresentedInstructionCountKey,
               std::min(count, kLargestPresentedInstructionCount));
    writeSettingsFile(manager->tarvikSettings_);
}

std::int64_t TVKSettingsManager::presentedInstructionCount() {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    const Value* count = storedValue(manager->tarvikSettings_, kPresentedInstructionCountKey);
    return count ? count->integerValue() : 0;
}

void TVKSettingsManager::updateLastPresentedInstructionDate() {
    auto manager = sharedInstance();
    Date now = Runtime::current().clock().now();
    std::lock_guard lock(manager->mutex_);
    storeValue(manager->tarvikSettings_, kLastPresentedInstructionDateKey, now);
}

std::optional<Date> TVKSettingsManager::lastPresentedInstructionDate() {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    return storedDate(manager->tarvikSettings_, kLastPresentedInstructionDateKey);
}

std::optional<Date> TVKSettingsManager::firstPresentedInstructionDate() {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    return storedDate(manager->tarvikSettings_, kFirstPresentedInstructionDateKey);
}

bool TVKSettingsManager::hasCheckedForJailbrokenDevice() {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    return storedValue(manager->tarvikSettings_, kJailbrokenDeviceKey) != nullptr;
}

void TVKSettingsManager::setJailbrokenDevice(bool jailbroken) {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    storeValue(manager->tarvikSettings_, kJailbrokenDeviceKey, jailbroken);
}

bool TVKSettingsManager::isJailbrokenDevice() {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mutex_);
    return storedBool(manager->tarvikSettings_, kJailbrokenDeviceKey);
}

}  // namespace tarvik
