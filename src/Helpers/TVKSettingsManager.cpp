#include "Helpers/TVKSettingsManager.h"

#include "Helpers/TVKDirectoryLayout.h"
#include "Platform/PropertyList.h"
#include "Platform/Runtime.h"

#include <algorithm>
#include <filesystem>

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

// The settings as read at creation. A file that cannot be read, is empty, is not a property
// list or holds anything but a dictionary at its top is not a settings file: the store then
// keeps no settings for the rest of the process, leaving the file on disk as it is.
std::optional<Dictionary> readSettingsFile(const std::string& path) {
    std::optional<Value> contents = plist::readFile(path);
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

TVKSettingsManager::TVKSettingsManager() : tarvikSettings_(Dictionary{}) {
    std::string path = tarvikSettingsPath();
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        Date now = Runtime::current().clock().now();
        Dictionary& defaults = *tarvikSettings_;
        defaults[kEventFeatureEnabledKey] = true;
        defaults[kDefaultInstructionCountKey] = 0;
        defaults[kLastPresentedInstructionDateKey] = now;
        defaults[kFirstPresentedInstructionDateKey] = now;
        writeSettingsFile(tarvikSettings_);
    }
    // Read back even after creating the file, so that a file that could not be written leaves
    // the store without settings rather than with settings that exist only in memory.
    tarvikSettings_ = readSettingsFile(path);
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
