#pragma once

#include "Kit/NSObject.h"
#include "Kit/UITouch.h"

#include <memory>
#include <string>

namespace tarvik {

// An object in the responder chain: touches that a responder does not take go to its next
// responder (a view's superview).
class UIResponder : public NSObject {
    TVK_KIT_CLASS(UIResponder, NSObject)

  public:
    virtual std::shared_ptr<UIResponder> nextResponder() const { return nullptr; }

    // The first responder receives the keyboard's text. Becoming it first asks the current
    // one to resign; either step may refuse.
    virtual bool canBecomeFirstResponder() const { return false; }
    virtual bool becomeFirstResponder();
    virtual bool canResignFirstResponder() const { return true; }
    virtual bool resignFirstResponder();
    bool isFirstResponder() const;

    // Touch reports. The base passes each to the next responder.
    virtual void touchesBegan(const UITouchSet& touches, const UIEvent& event);
    virtual void touchesMoved(const UITouchSet& touches, const UIEvent& event);
    virtual void touchesEnded(const UITouchSet& touches, const UIEvent& event);
    virtual void touchesCancelled(const UITouchSet& touches, const UIEvent& event);
};

// A responder that takes typed text: what a presenter's keyboard input reaches through the
// application's first responder.
class UIKeyInput {
  public:
    virtual ~UIKeyInput() = default;
    virtual bool hasText() const = 0;
    // Text typed or committed by an input method; "\n" is the return key.
    virtual void insertText(const std::string& text) = 0;
    virtual void deleteBackward() = 0;
    // The arrow keys: the insertion point one character to the left or the right.
    virtual void moveInsertionPointLeft() = 0;
    virtual void moveInsertionPointRight() = 0;
};

}  // namespace tarvik
