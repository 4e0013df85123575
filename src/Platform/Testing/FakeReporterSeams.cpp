#include "Platform/Testing/FakeReporterSeams.h"

namespace tarvik::testing {

void SystemCallLog::record(std::string call) {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
}

std::vector<std::string> SystemCallLog::calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
}

std::optional<std::string> TableLocalization::translationForKey(const std::string& key) const {
    std::lock_guard lock(mutex_);
    auto found = translations_.find(key);
    if (found == translations_.end()) {
        return std::nullopt;
    }
    return found->second;
}

void TableLocalization::setTranslations(std::map<std::string, std::string> translations) {
    std::lock_guard lock(mutex_);
    translations_ = std::move(translations);
}

namespace {

// Something recognisable to draw over: a title bar and rows of content blocks.
void drawPlainAppScreen(cairo_t* context, double width, double height) {
    cairo_set_source_rgb(context, 1, 1, 1);
    cairo_paint(context);
    cairo_set_source_rgb(context, 0.90, 0.91, 0.93);
    cairo_rectangle(context, 0, 0, width, 64);
    cairo_fill(context);
    for (double y = 88; y + 48 < height; y += 72) {
        cairo_set_source_rgb(context, 0.80, 0.82, 0.86);
        cairo_rectangle(context, 16, y, 48, 48);
        cairo_fill(context);
        cairo_set_source_rgb(context, 0.88, 0.89, 0.92);
        cairo_rectangle(context, 80, y + 8, width - 96, 12);
        cairo_rectangle(context, 80, y + 28, (width - 96) * 0.6, 12);
        cairo_fill(context);
    }
}

}  // namespace

std::optional<Image> FixedHostWindow::snapshot(double scale) {
    log_.record("snapshot");
    {
        std::lock_guard lock(mutex_);
        if (imageSet_) {
            return image_;
        }
    }
    Size size = screen_.bounds().size;
    return Image::render(size.width, size.height, scale, Image::Opaque, [&](cairo_t* context) {
        drawPlainAppScreen(context, size.width, size.height);
    });
}

void FixedHostWindow::setImage(std::optional<Image> image) {
    std::lock_guard lock(mutex_);
    imageSet_ = true;
    image_ = std::move(image);
}

void RecordingSoundPlayer::playSystemSound(unsigned soundId) {
    log_.record("sound " + std::to_string(soundId));
}

}  // namespace tarvik::testing
