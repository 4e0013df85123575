#pragma once

#include "Kit/NSAttributedString.h"
#include "Kit/Render/TextLayout.h"
#include "Kit/TextEditing.h"
#include "Kit/UIEdgeInsets.h"
#include "Kit/UITextInputTraits.h"
#include "Kit/UIView.h"

#include <memory>
#include <string>

namespace tarvik {

class UITextView;

inline constexpr const char* UITextViewTextDidChangeNotification =
    "UITextViewTextDidChangeNotification";

// Told of a text view's editing, in the phone's order; every call is optional.
class UITextViewDelegate {
  public:
    virtual ~UITextViewDelegate() = default;
    virtual bool textViewShouldBeginEditing(UITextView&) { return true; }
    virtual void textViewDidBeginEditing(UITextView&) {}
    virtual bool textViewShouldEndEditing(UITextView&) { return true; }
    virtual void textViewDidEndEditing(UITextView&) {}
    // Asked before typed or deleted text (a line break too) replaces `range` of the text.
    virtual bool shouldChangeTextInRange(UITextView&, NSRange, const std::string&) { return true; }
    virtual void textViewDidChange(UITextView&) {}
};

// Several lines of editable text that wrap within the view and scroll vertically to keep the
// insertion point in sight. The text sits inside the content inset, then the text container's
// inset, then the line-fragment padding on either side.
class UITextView : public UIView, public UIKeyInput {
    TVK_KIT_CLASS(UITextView, UIView)

  public:
    explicit UITextView(Rect frame = {});

    const std::string& text() const { return editing_.text(); }
    // Sets the text as the program's, not the user's: no delegate call, no notification.
    void setText(std::string text);
    NSRange selectedRange() const { return editing_.selectedRange(); }

    const UIFont& font() const { return style_.font; }
    void setFont(UIFont font);
    const Color& textColor() const { return style_.color; }
    void setTextColor(Color color);
    NSTextAlignment textAlignment() const { return style_.alignment; }
    void setTextAlignment(NSTextAlignment alignment);
    // The attributes typed text takes: the view's font, colour and alignment.
    TextAttributes typingAttributes() const;

    UIEdgeInsets textContainerInset() const { return textContainerInset_; }
    void setTextContainerInset(UIEdgeInsets inset);
    double lineFragmentPadding() const { return lineFragmentPadding_; }
    void setLineFragmentPadding(double padding);
    UIEdgeInsets contentInset() const { return contentInset_; }
    void setContentInset(UIEdgeInsets inset);

    UITextInputTraits& inputTraits() { return traits_; }
    const UITextInputTraits& inputTraits() const { return traits_; }

    std::shared_ptr<UITextViewDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(const std::shared_ptr<UITextViewDelegate>& delegate) { delegate_ = delegate; }

    // The scroll position: the top of the visible part of the content.
    double contentOffsetY() const { return bounds().origin.y; }

    bool canBecomeFirstResponder() const override { return true; }
    bool becomeFirstResponder() override;
    bool resignFirstResponder() override;

    bool hasText() const override { return !text().empty(); }
    void insertText(const std::string& text) override;
    void deleteBackward() override;
    void moveInsertionPointLeft() override;
    void moveInsertionPointRight() override;

    void touchesBegan(const UITouchSet& touches, const UIEvent& event) override;
    void touchesMoved(const UITouchSet& touches, const UIEvent& event) override;
    void touchesEnded(const UITouchSet& touches, const UIEvent& event) override;
    void drawRect(cairo_t* context, Rect rect) override;

  private:
    // Where the lines start in content coordinates, and how wide they may be.
    Point textOrigin() const;
    double textWidth() const;
    std::unique_ptr<TextLayout> makeLayout() const;
    void replace(NSRange range, const std::string& replacement);
    void scrollToInsertionPoint();

    TextEditing editing_;
    TextStyle style_;
    UIEdgeInsets textContainerInset_{8, 0, 8, 0};
    double lineFragmentPadding_ = 5;
    UIEdgeInsets contentInset_;
    UITextInputTraits traits_;
    std::weak_ptr<UITextViewDelegate> delegate_;
};

}  // namespace tarvik
