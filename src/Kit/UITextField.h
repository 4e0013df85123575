#pragma once

#include "Kit/NSAttributedString.h"
#include "Kit/Render/TextLayout.h"
#include "Kit/TextEditing.h"
#include "Kit/UITextInputTraits.h"
#include "Kit/UIView.h"

#include <memory>
#include <optional>
#include <string>

namespace tarvik {

class UITextField;

inline constexpr const char* UITextFieldTextDidChangeNotification =
    "UITextFieldTextDidChangeNotification";

// Told of a field's editing, in the phone's order; every call is optional.
class UITextFieldDelegate {
  public:
    virtual ~UITextFieldDelegate() = default;
    virtual bool textFieldShouldBeginEditing(UITextField&) { return true; }
    virtual void textFieldDidBeginEditing(UITextField&) {}
    virtual bool textFieldShouldEndEditing(UITextField&) { return true; }
    virtual void textFieldDidEndEditing(UITextField&) {}
    // Asked before typed or deleted text replaces `range` of the field's text.
    virtual bool shouldChangeCharactersInRange(UITextField&, NSRange, const std::string&) {
        return true;
    }
    // The return key was pressed; a field never takes a line break.
    virtual bool textFieldShouldReturn(UITextField&) { return true; }
};

// When a side view of a field shows.
enum class UITextFieldViewMode { Never, WhileEditing, UnlessEditing, Always };

// One line of editable text between an optional left and right view, with a placeholder while
// it is empty. Tapping it starts editing; the keyboard's text then reaches it.
class UITextField : public UIView, public UIKeyInput {
    TVK_KIT_CLASS(UITextField, UIView)

  public:
    explicit UITextField(Rect frame = {});

    const std::string& text() const { return editing_.text(); }
    // Sets the text as the program's, not the user's: no delegate call, no notification.
    void setText(std::string text);
    NSRange selectedRange() const { return editing_.selectedRange(); }

    const std::string& placeholder() const { return attributedPlaceholder_.string(); }
    void setPlaceholder(std::string placeholder);
    const NSAttributedString& attributedPlaceholder() const { return attributedPlaceholder_; }
    void setAttributedPlaceholder(NSAttributedString placeholder);

    const UIFont& font() const { return style_.font; }
    void setFont(UIFont font);
    const Color& textColor() const { return style_.color; }
    void setTextColor(Color color);
    NSTextAlignment textAlignment() const { return style_.alignment; }
    void setTextAlignment(NSTextAlignment alignment);

    UITextInputTraits& inputTraits() { return traits_; }
    const UITextInputTraits& inputTraits() const { return traits_; }

    const std::shared_ptr<UIView>& leftView() const { return leftView_; }
    void setLeftView(std::shared_ptr<UIView> view);
    UITextFieldViewMode leftViewMode() const { return leftViewMode_; }
    void setLeftViewMode(UITextFieldViewMode mode);
    const std::shared_ptr<UIView>& rightView() const { return rightView_; }
    void setRightView(std::shared_ptr<UIView> view);
    UITextFieldViewMode rightViewMode() const { return rightViewMode_; }
    void setRightViewMode(UITextFieldViewMode mode);

    std::shared_ptr<UITextFieldDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(const std::shared_ptr<UITextFieldDelegate>& delegate) { delegate_ = delegate; }

    bool isEditing() const { return isFirstResponder(); }
    // Where the text and the placeholder go: the bounds less the side views that show.
    Rect textRectForBounds(Rect bounds) const;

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
    void layoutSubviews() override;
    void drawRect(cairo_t* context, Rect rect) override;

  private:
    void replace(NSRange range, const std::string& replacement);
    bool showsSideView(const std::shared_ptr<UIView>& view, UITextFieldViewMode mode) const;
    // How far the text is scrolled left so that the insertion point stays in view.
    double horizontalScroll(const TextLayout& layout, double width) const;

    TextEditing editing_;
    NSAttributedString attributedPlaceholder_;
    TextStyle style_;
    UITextInputTraits traits_;
    std::shared_ptr<UIView> leftView_;
    std::shared_ptr<UIView> rightView_;
    UITextFieldViewMode leftViewMode_ = UITextFieldViewMode::Never;
    UITextFieldViewMode rightViewMode_ = UITextFieldViewMode::Never;
    std::weak_ptr<UITextFieldDelegate> delegate_;
};

// The insertion point as the toolkit draws it: a bar 2 points wide and a line high, in the
// control's tint colour.
void drawInsertionPoint(cairo_t* context, Rect caret, const Color& color);

}  // namespace tarvik
