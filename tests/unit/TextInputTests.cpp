#include "Helpers/UIColor+Tarvik.h"
#include "Kit/Render/SoftwareRenderer.h"
#include "Kit/UIApplication.h"
#include "Kit/UILabel.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKTextField.h"
#include "Views/TVKTextView.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::TestRuntime;

// Writes every delegate call of a field and a text view, in order, as a line.
class Recorder : public UITextFieldDelegate, public UITextViewDelegate {
  public:
    std::vector<std::string> calls;
    bool allowChanges = true;

    void textFieldDidBeginEditing(UITextField&) override { calls.push_back("field began"); }
    bool textFieldShouldEndEditing(UITextField&) override {
        calls.push_back("field should end");
        return true;
    }
    void textFieldDidEndEditing(UITextField&) override { calls.push_back("field ended"); }
    bool shouldChangeCharactersInRange(UITextField& field, NSRange range,
                                       const std::string& text) override {
        calls.push_back("field change " + std::to_string(range.location) + "+" +
                        std::to_string(range.length) + " '" + text + "' in '" + field.text() + "'");
        return allowChanges;
    }
    bool textFieldShouldReturn(UITextField&) override {
        calls.push_back("field return");
        return false;
    }
    bool textViewShouldBeginEditing(UITextView&) override {
        calls.push_back("view should begin");
        return true;
    }
    void textViewDidBeginEditing(UITextView&) override { calls.push_back("view began"); }
    void textViewDidEndEditing(UITextView&) override { calls.push_back("view ended"); }
    bool shouldChangeTextInRange(UITextView&, NSRange range, const std::string& text) override {
        calls.push_back("view change " + std::to_string(range.location) + "+" +
                        std::to_string(range.length) + " '" + text + "'");
        return allowChanges;
    }
};

// The form's order: the e-mail field first, its return key moving on to the description,
// the keyboard coming up once and going down once.
TEST(TextInput, DelegateCallsComeInThePhonesOrderAndTheKeyboardFollowsTheFocus) {
    TestRuntime test;
    auto recorder = std::make_shared<Recorder>();
    auto field = std::make_shared<TVKTextField>(Rect{{0, 0}, {300, 56}});
    auto view = std::make_shared<TVKTextView>(Rect{{0, 56}, {300, 200}});
    field->setDelegate(recorder);
    view->setDelegate(recorder);
    std::vector<std::string> keyboard;
    NotificationCenter& center = test.runtime().notificationCenter();
    for (const char* name : {UIKeyboardWillShowNotification, UIKeyboardDidShowNotification,
                             UIKeyboardWillHideNotification, UIKeyboardDidHideNotification}) {
        center.addObserver(name,
                           [&keyboard](const Notification& n) { keyboard.push_back(n.name); });
    }
    int fieldChanges = 0;
    center.addObserver(UITextFieldTextDidChangeNotification,
                       [&](const Notification& n) { fieldChanges += n.object == field; });

    ASSERT_TRUE(field->becomeFirstResponder());
    EXPECT_TRUE(keyboard.empty());  // after the editing callbacks, in a later turn
    test.advance(0);
    field->insertText("a");
    field->insertText("\xF0\x9F\x98\x80");  // two UTF-16 units
    field->moveInsertionPointLeft();
    field->insertText("@");
    field->deleteBackward();
    field->insertText("\n");
    EXPECT_EQ(field->text(), "a\xF0\x9F\x98\x80");
    EXPECT_EQ(fieldChanges, 4);
    ASSERT_TRUE(view->becomeFirstResponder());
    view->insertText("x\ny");
    ASSERT_TRUE(view->resignFirstResponder());
    test.advance(0);

    const std::vector<std::string> expected = {
        "field began",
        "field change 0+0 'a' in ''",
        "field change 1+0 '\xF0\x9F\x98\x80' in 'a'",
        "field change 1+0 '@' in 'a\xF0\x9F\x98\x80'",
        "field change 1+1 '' in 'a@\xF0\x9F\x98\x80'",
        "field return",
        "view should begin",
        "field should end",
        "field ended",
        "view began",
        "view change 0+0 'x\ny'",
        "view ended",
    };
    EXPECT_EQ(recorder->calls, expected);
    EXPECT_EQ(keyboard, (std::vector<std::string>{
                            UIKeyboardWillShowNotification, UIKeyboardDidShowNotification,
                            UIKeyboardWillHideNotification, UIKeyboardDidHideNotification}));
    EXPECT_EQ(view->text(), "x\ny");
}

TEST(TextInput, ARefusedChangeLeavesTextAndNotificationsAlone) {
    TestRuntime test;
    auto recorder = std::make_shared<Recorder>();
    recorder->allowChanges = false;
    auto view = std::make_shared<UITextView>(Rect{{0, 0}, {200, 100}});
    view->setDelegate(recorder);
    view->setText("keep");
    int changes = 0;
    test.runtime().notificationCenter().addObserver(UITextViewTextDidChangeNotification,
                                                    [&](const Notification&) { ++changes; });
    view->deleteBackward();
    view->insertText("!");
    EXPECT_EQ(view->text(), "keep");
    EXPECT_EQ(changes, 0);
    EXPECT_EQ(recorder->calls.size(), 2u);
}

// The form's e-mail field: a 16-point spacer on the left, "optional" on the right only while
// the field is not being edited, the text between them.
TEST(TextInput, SideViewsFollowTheirModesAndNarrowTheTextRect) {
    TestRuntime test;
    auto field = std::make_shared<UITextField>(Rect{{0, 0}, {300, 56}});
    field->setLeftView(std::make_shared<UIView>(Rect{{0, 0}, {16, 1}}));
    field->setLeftViewMode(UITextFieldViewMode::Always);
    auto optional = std::make_shared<UILabel>(Rect{{0, 0}, {70, 20}});
    field->setRightView(optional);
    field->setRightViewMode(UITextFieldViewMode::UnlessEditing);
    field->layoutIfNeeded();
    EXPECT_EQ(optional->frame(), (Rect{{230, 18}, {70, 20}}));
    EXPECT_EQ(field->textRectForBounds(field->bounds()), (Rect{{16, 0}, {214, 56}}));

    field->becomeFirstResponder();
    field->layoutIfNeeded();
    EXPECT_EQ(optional->superview(), nullptr);
    EXPECT_EQ(field->textRectForBounds(field->bounds()), (Rect{{16, 0}, {284, 56}}));
    field->resignFirstResponder();
    field->layoutIfNeeded();
    EXPECT_EQ(optional->superview(), field);
}

// The description view as the form sets it up: no padding, 20 points kept free on the right.
TEST(TextInput, TextViewPlaceholderLiesInsideTheInsetsAndGoesWithTheFirstCharacter) {
    TestRuntime test;
    auto view = std::make_shared<TVKTextView>(Rect{{0, 0}, {300, 120}});
    view->setFont(*UIFont::fontWithName("HelveticaNeue", 16));
    view->setLineFragmentPadding(0);
    view->setTextContainerInset({0, 0, 0, 20});
    view->setContentInset({4, 2, 0, 0});
    view->setPlaceholder("Description of the problem");
    EXPECT_EQ(view->placeholderRectForBounds(view->bounds()), (Rect{{2, 4}, {278, 116}}));
    EXPECT_EQ(view->attributedPlaceholder().attributesAtIndex(0).font, view->font());
    EXPECT_EQ(view->attributedPlaceholder().attributesAtIndex(0).foregroundColor,
              tarvik_placeholderTextColor());

    view->setTextContainerInset({8, 0, 8, 0});
    view->setLineFragmentPadding(5);
    EXPECT_EQ(view->placeholderRectForBounds(view->bounds()), (Rect{{7, 12}, {288, 100}}));

    const auto placeholderPixels = [&] {
        const Image image = *SoftwareRenderer::render(*view, 1);
        int count = 0;
        for (int y = 0; y < 120; ++y) {
            for (int x = 0; x < 300; ++x) {
                const Image::Pixel pixel = image.pixelAt(x, y);
                count += pixel.alpha > 128 && pixel.red > 120 && pixel.blue > pixel.red;
            }
        }
        return count;
    };
    EXPECT_GT(placeholderPixels(), 50);
    view->takeNeedsDisplayRect();
    view->insertText("A");
    EXPECT_TRUE(view->needsDisplayRect());
    EXPECT_EQ(placeholderPixels(), 0);
}

}  // namespace
}  // namespace tarvik
