#include "Kit/UIFont.h"

#include "Kit/Render/TextLayout.h"

#include <cmath>
#include <string_view>

namespace tarvik {

namespace {

// The family the reporter's Helvetica names and the system font resolve to: metric-compatible
// with Helvetica, installed by setup from Debian (fonts-urw-base35).
constexpr const char* kHelveticaMetricFamily = "Nimbus Sans";
constexpr const char* kSystemFontName = "System";
constexpr const char* kBoldSystemFontName = "System-Bold";

// The line box of the design's Helvetica faces, in ems. The installed family matches their
// widths but sets its lines at one em, which crowds multi-line text; its lines get this height.
constexpr double kHelveticaLineHeightEms = 1.193;

struct ResolvedFace {
    std::string family;
    bool bold;
    double lineHeightEms;  // 0: the face's own
};

// "Family-Style" names: the Helvetica families and the system font become the installed
// Helvetica-metric family; any other family is asked of fontconfig as it is.
ResolvedFace resolve(std::string_view name) {
    const std::size_t dash = name.find('-');
    const std::string_view family = name.substr(0, dash);
    const std::string_view style =
        dash == std::string_view::npos ? std::string_view{} : name.substr(dash + 1);
    const bool bold = style.find("Bold") != std::string_view::npos;
    if (family == "HelveticaNeue" || family == "Helvetica" || family == kSystemFontName) {
        return {kHelveticaMetricFamily, bold, kHelveticaLineHeightEms};
    }
    return {std::string(family), bold, 0};
}

}  // namespace

UIFont::UIFont(std::string fontName, double pointSize)
    : fontName_(std::move(fontName)), pointSize_(pointSize) {
    ResolvedFace face = resolve(fontName_);
    familyName_ = std::move(face.family);
    bold_ = face.bold;
    lineHeightEms_ = face.lineHeightEms;
}

std::optional<UIFont> UIFont::fontWithName(const std::string& name, double pointSize) {
    if (name.empty() || !std::isfinite(pointSize) || pointSize <= 0) {
        return std::nullopt;
    }
    return UIFont(name, pointSize);
}

UIFont UIFont::systemFontOfSize(double pointSize) {
    return UIFont(kSystemFontName, pointSize);
}

UIFont UIFont::boldSystemFontOfSize(double pointSize) {
    return UIFont(kBoldSystemFontName, pointSize);
}

double UIFont::ascender() const {
    return metricsOfFont(*this).ascent;
}
double UIFont::descender() const {
    return -metricsOfFont(*this).descent;
}
double UIFont::lineHeight() const {
    if (lineHeightEms_ > 0) {
        return lineHeightEms_ * pointSize_;
    }
    const FontMetrics metrics = metricsOfFont(*this);
    return metrics.ascent + metrics.descent;
}

}  // namespace tarvik
