#pragma once

#include <optional>
#include <string>

namespace tarvik {

// A font as the toolkit names it: a font name and a size in points. The names the reporter
// uses ("HelveticaNeue", "HelveticaNeue-Bold") and the system font resolve through fontconfig
// to one Helvetica-metric family that setup installs, so text measures and draws alike on
// every machine.
class UIFont {
  public:
    // None for an empty name or a size that is not a positive finite number.
    static std::optional<UIFont> fontWithName(const std::string& name, double pointSize);
    static UIFont systemFontOfSize(double pointSize);
    static UIFont boldSystemFontOfSize(double pointSize);

    const std::string& fontName() const { return fontName_; }
    double pointSize() const { return pointSize_; }
    // The fontconfig family the name resolves to, and whether it is the bold face.
    const std::string& familyName() const { return familyName_; }
    bool isBold() const { return bold_; }

    // Vertical metrics in points, from the resolved face: ascender above the baseline,
    // descender below it (negative), and the height of one line (the design's line box for
    // the Helvetica names, the face's own otherwise).
    double ascender() const;
    double descender() const;
    double lineHeight() const;

    bool operator==(const UIFont& other) const {
        return fontName_ == other.fontName_ && pointSize_ == other.pointSize_;
    }

  private:
    UIFont(std::string fontName, double pointSize);

    std::string fontName_;
    double pointSize_;
    std::string familyName_;
    bool bold_ = false;
    double lineHeightEms_ = 0;
};

}  // namespace tarvik
