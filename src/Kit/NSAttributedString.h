#pragma once

#include "Kit/Color.h"
#include "Kit/NSRange.h"
#include "Kit/UIFont.h"

#include <optional>
#include <string>
#include <vector>

namespace tarvik {

enum class NSTextAlignment { Left, Center, Right, Justified, Natural };

// The attributes text can carry; an attribute that is not set falls back to the drawing
// view's own (its font, its text colour, its alignment).
struct TextAttributes {
    std::optional<UIFont> font = std::nullopt;
    std::optional<Color> foregroundColor = std::nullopt;
    std::optional<NSTextAlignment> alignment = std::nullopt;

    // The attributes set in `other` replace these.
    void merge(const TextAttributes& other);
    bool operator==(const TextAttributes&) const = default;
};

// Text with attributes over ranges of it (UTF-16 ranges, as the phone's). Attributes added
// later win over earlier ones where they overlap.
class NSAttributedString {
  public:
    struct Run {
        NSRange range;
        TextAttributes attributes;
        bool operator==(const Run&) const = default;
    };

    NSAttributedString() = default;
    explicit NSAttributedString(std::string string, const TextAttributes& attributes = {});

    const std::string& string() const { return string_; }
    std::size_t length() const { return length_; }
    const std::vector<Run>& runs() const { return runs_; }

    // Sets `attributes` over `range` (clamped to the text), keeping the others.
    void addAttributes(const TextAttributes& attributes, NSRange range);
    // Everything in force at UTF-16 index `index`.
    TextAttributes attributesAtIndex(std::size_t index) const;

    bool operator==(const NSAttributedString&) const = default;

  private:
    std::string string_;
    std::size_t length_ = 0;
    std::vector<Run> runs_;
};

}  // namespace tarvik
