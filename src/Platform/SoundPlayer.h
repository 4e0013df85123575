#pragma once

#include <functional>
#include <mutex>

namespace tarvik {

// The sounds the SDK plays, by the system's sound numbers.
inline constexpr unsigned kCameraShutterSystemSound = 1108;

class SoundPlayer {
  public:
    virtual ~SoundPlayer() = default;
    // Starts the sound and returns at once; a machine without sound plays nothing.
    virtual void playSystemSound(unsigned soundId) = 0;
};

// Plays sounds through whatever a layer above the core supplies; silent until then.
class SuppliedSoundPlayer : public SoundPlayer {
  public:
    using Play = std::function<void(unsigned soundId)>;
    void playSystemSound(unsigned soundId) override {
        Play play;
        {
            std::lock_guard lock(mutex_);
            play = play_;
        }
        if (play) {
            play(soundId);
        }
    }
    void setPlay(Play play) {
        std::lock_guard lock(mutex_);
        play_ = std::move(play);
    }

  private:
    std::mutex mutex_;
    Play play_;
};

}  // namespace tarvik
