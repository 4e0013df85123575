#pragma once

#include "Kit/NSRange.h"

#include <string>

namespace tarvik {

// The text of a field or text view with its insertion point and selection, in UTF-16 units.
// It only answers which range an edit replaces and applies an edit once the owner's delegate
// has allowed it; the asking is the owner's.
class TextEditing {
  public:
    const std::string& text() const { return text_; }
    // Replaces the whole text and puts the insertion point at its end.
    void setText(std::string text);
    NSRange selectedRange() const { return selection_; }
    void setSelectedRange(NSRange range);

    // The range typing replaces: the selection.
    NSRange rangeForInsertion() const { return selection_; }
    // The range a delete-backward removes: the selection, or the character before the
    // insertion point (both units of a surrogate pair); empty at the start.
    NSRange rangeForDeleteBackward() const;
    // Replaces `range` with `replacement` and puts the insertion point after it.
    void replace(NSRange range, const std::string& replacement);
    // Moves the insertion point one character left or right, dropping the selection.
    void moveLeft();
    void moveRight();

  private:
    std::size_t length() const;
    std::size_t characterStartBefore(std::size_t index) const;
    std::size_t characterEndAfter(std::size_t index) const;

    std::string text_;
    NSRange selection_;
};

}  // namespace tarvik
