#pragma once

#include "Platform/HostWindow.h"
#include "Platform/Localization.h"
#include "Platform/ScreenMetrics.h"
#include "Platform/SoundPlayer.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tarvik::testing {

// What the reporter asked of the system, in order ("sound 1108", "snapshot"), so that a test
// can tell which came first.
class SystemCallLog {
  public:
    void record(std::string call);
    std::vector<std::string> calls() const;

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> calls_;
};

// Translations a test sets; none until then.
class TableLocalization : public Localization {
  public:
    std::optional<std::string> translationForKey(const std::string& key) const override;
    void setTranslations(std::map<std::string, std::string> translations);

  private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> translations_;
};

// The host's window as a fixed image: the one a test sets, or else a plain app screen the size
// of the screen (a grey bar at the top, rows of grey blocks on white), drawn at the asked scale.
class FixedHostWindow : public HostWindow {
  public:
    FixedHostWindow(const ScreenMetrics& screen, SystemCallLog& log) : screen_(screen), log_(log) {}
    std::optional<Image> snapshot(double scale) override;
    // None: the host has no window.
    void setImage(std::optional<Image> image);

  private:
    const ScreenMetrics& screen_;
    SystemCallLog& log_;
    std::mutex mutex_;
    bool imageSet_ = false;
    std::optional<Image> image_;
};

class RecordingSoundPlayer : public SoundPlayer {
  public:
    explicit RecordingSoundPlayer(SystemCallLog& log) : log_(log) {}
    void playSystemSound(unsigned soundId) override;

  private:
    SystemCallLog& log_;
};

}  // namespace tarvik::testing
