#include "Kit/UIAlertController.h"
#include "Kit/UIApplication.h"
#include "Kit/UINavigationController.h"
#include "Kit/UIWindow.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarvik {
namespace {

using Log = std::vector<std::string>;

// Writes each life-cycle call it gets into a log shared with the test.
class RecordingController : public UIViewController {
  public:
    RecordingController(std::string name, Log& log) : name_(std::move(name)), log_(log) {}

    void viewDidLoad() override { record("viewDidLoad"); }
    void viewWillAppear(bool animated) override { record("viewWillAppear", animated); }
    void viewDidAppear(bool animated) override { record("viewDidAppear", animated); }
    void viewWillDisappear(bool animated) override { record("viewWillDisappear", animated); }
    void viewDidDisappear(bool animated) override { record("viewDidDisappear", animated); }

  private:
    void record(const std::string& call, bool animated = false) {
        log_.push_back(name_ + "." + call + (animated ? " animated" : ""));
    }
    std::string name_;
    Log& log_;
};

struct Screen {
    testing::TestRuntime runtime;
    std::shared_ptr<UIWindow> window = std::make_shared<UIWindow>(Rect{{0, 0}, {375, 667}});

    void show(const std::shared_ptr<UIViewController>& root) {
        window->setRootViewController(root);
        window->setHidden(false);
        window->layoutIfNeeded();
    }
    // A finger put down and lifted at `point` of the window.
    void tap(Point point) {
        UIApplication& application = UIApplication::sharedApplication();
        application.handleTouch(window, 1, UITouchPhase::Began, point);
        application.handleTouch(window, 1, UITouchPhase::Ended, point);
    }
};

TEST(KitViewController, LoadsItsViewOnceAndAppearsWithItsWindow) {
    Screen screen;
    Log log;
    auto controller = std::make_shared<RecordingController>("A", log);
    EXPECT_FALSE(controller->isViewLoaded());
    std::shared_ptr<UIView> view = controller->view();
    EXPECT_EQ(controller->view(), view);
    EXPECT_EQ(view->bounds().size, (Size{375, 667}));  // the screen's, until placed

    screen.show(controller);
    screen.window->setHidden(false);  // already shown: nothing more
    screen.window->setBounds({{0, 0}, {667, 375}});
    EXPECT_EQ(view->frame(), (Rect{{0, 0}, {667, 375}}));  // it follows the window
    screen.window->setHidden(true);
    EXPECT_EQ(log, (Log{"A.viewDidLoad", "A.viewWillAppear", "A.viewDidAppear",
                        "A.viewWillDisappear", "A.viewDidDisappear"}));
}

// Push and pop in the phone's order, with the flag passed through; a pop ends the popped
// controller's link to the stack only once its view has gone.
TEST(KitNavigationController, PushAndPopCallTheLifeCycleInThePhonesOrder) {
    for (bool animated : {false, true}) {
        Screen screen;
        Log log;
        auto first = std::make_shared<RecordingController>("A", log);
        auto second = std::make_shared<RecordingController>("B", log);
        auto navigation = std::make_shared<UINavigationController>(first);
        screen.show(navigation);
        EXPECT_EQ(log, (Log{"A.viewDidLoad", "A.viewWillAppear", "A.viewDidAppear"}));
        EXPECT_EQ(first->navigationController(), navigation);

        log.clear();
        navigation->pushViewController(second, animated);
        EXPECT_EQ(log.size(), animated ? 3u : 5u);  // the did-calls wait for the slide's end
        screen.runtime.advance(1);
        std::string flag = animated ? " animated" : "";
        EXPECT_EQ(log,
                  (Log{"B.viewDidLoad", "A.viewWillDisappear" + flag, "B.viewWillAppear" + flag,
                       "A.viewDidDisappear" + flag, "B.viewDidAppear" + flag}));
        EXPECT_EQ(navigation->viewControllers(),
                  (std::vector<std::shared_ptr<UIViewController>>{first, second}));
        EXPECT_TRUE(second->view()->isDescendantOfView(*screen.window));
        EXPECT_FALSE(first->view()->superview());
        // Below the 20-point status bar and the 44-point bar.
        EXPECT_EQ(second->view()->convertRectToView(second->view()->bounds(), nullptr),
                  (Rect{{0, 64}, {375, 603}}));

        navigation->pushViewController(second, animated);  // already there
        EXPECT_EQ(navigation->viewControllers().size(), 2u);

        log.clear();
        EXPECT_EQ(navigation->popViewControllerAnimated(animated), second);
        EXPECT_EQ(second->navigationController(), animated ? navigation : nullptr);
        screen.runtime.advance(1);
        EXPECT_EQ(log, (Log{"B.viewWillDisappear" + flag, "A.viewWillAppear" + flag,
                            "B.viewDidDisappear" + flag, "A.viewDidAppear" + flag}));
        EXPECT_EQ(second->navigationController(), nullptr);
        EXPECT_FALSE(second->view()->superview());
        EXPECT_EQ(navigation->popViewControllerAnimated(animated), nullptr);  // the root stays
        EXPECT_EQ(navigation->topViewController(), first);
    }
}

Rect inWindow(const UIView& view) {
    return view.convertRectToView(view.bounds(), nullptr);
}

Point middle(Rect rect) {
    return {rect.origin.x + rect.size.width / 2, rect.origin.y + rect.size.height / 2};
}

// Receives a title item's action.
class ItemTarget : public NSObject {
  public:
    std::vector<std::shared_ptr<UIBarButtonItem>> senders;
    void done(const std::shared_ptr<UIBarButtonItem>& sender) { senders.push_back(sender); }
};

// The editor's and the form's bars: items at the phone's margins, the title centred, a back
// button with the indicator and the previous title (or the indicator alone), popping on tap.
TEST(KitNavigationBar, ItemsSitAtTheEdgesAndTheBackButtonPops) {
    Screen screen;
    auto editor = std::make_shared<UIViewController>();
    editor->setTitle("Circle the Problem");
    auto cancel = std::make_shared<UIView>(Rect{{0, 0}, {20, 20}});
    auto send = std::make_shared<UIView>(Rect{{0, 0}, {24, 30}});
    editor->navigationItem()->setLeftBarButtonItem(UIBarButtonItem::initWithCustomView(cancel));
    editor->navigationItem()->setRightBarButtonItem(UIBarButtonItem::initWithCustomView(send));
    auto navigation = std::make_shared<UINavigationController>(editor);
    screen.show(navigation);
    std::shared_ptr<UINavigationBar> bar = navigation->navigationBar();
    EXPECT_EQ(inWindow(*bar), (Rect{{0, 20}, {375, 44}}));
    EXPECT_EQ(inWindow(*cancel), (Rect{{16, 32}, {20, 20}}));
    EXPECT_EQ(inWindow(*send), (Rect{{375 - 16 - 24, 27}, {24, 30}}));
    EXPECT_DOUBLE_EQ(middle(inWindow(*bar->titleLabel())).x, 375 / 2.0);
    EXPECT_EQ(bar->titleLabel()->text(), "Circle the Problem");
    EXPECT_EQ(bar->backButtonView(), nullptr);

    // The form: the previous title on the back button, a title item on the right.
    auto form = std::make_shared<UIViewController>();
    form->setTitle("Describe the Problem");
    auto target = std::make_shared<ItemTarget>();
    std::shared_ptr<UIBarButtonItem> submit = UIBarButtonItem::initWithTitle(
        "Submit", UIBarButtonItemStyleDone, target, Selector::method("done:", &ItemTarget::done));
    form->navigationItem()->setRightBarButtonItem(submit);
    navigation->pushViewController(form, false);
    std::shared_ptr<UIView> back = bar->backButtonView();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(inWindow(*back).origin, (Point{0, 20}));
    EXPECT_EQ(send->superview(), nullptr);
    std::shared_ptr<UIView> submitView = bar->rightItemView();
    EXPECT_DOUBLE_EQ(inWindow(*submitView).origin.x + inWindow(*submitView).size.width, 375 - 16);
    screen.tap(middle(inWindow(*submitView)));
    ASSERT_EQ(target->senders.size(), 1u);
    EXPECT_EQ(target->senders[0], submit);  // the item is the sender, not its button
    Rect backWithTitle = inWindow(*back);

    // An empty back item shows the indicator alone: the button narrows at once.
    editor->navigationItem()->setBackBarButtonItem(
        UIBarButtonItem::initWithTitle("", UIBarButtonItemStylePlain, nullptr, std::nullopt));
    EXPECT_LT(inWindow(*back).size.width, backWithTitle.size.width / 3);

    screen.tap(middle(inWindow(*back)));
    screen.runtime.advance(1);
    EXPECT_EQ(navigation->topViewController(), editor);
    EXPECT_EQ(bar->backButtonView(), nullptr);
    EXPECT_EQ(bar->leftItemView(), cancel);

    // Wider bars keep their items 20 points from the edges.
    screen.window->setBounds({{0, 0}, {414, 736}});
    screen.window->layoutIfNeeded();
    EXPECT_EQ(inWindow(*cancel).origin.x, 20);
}

// The reporter's alerts: presented over the form, dismissed by their button before the
// button's handler runs.
TEST(KitAlertController, TappingAnActionDismissesTheAlertAndThenRunsItsHandler) {
    Screen screen;
    Log log;
    auto form = std::make_shared<RecordingController>("Form", log);
    auto navigation = std::make_shared<UINavigationController>(form);
    screen.show(navigation);
    log.clear();

    std::shared_ptr<UIAlertController> alert = UIAlertController::alertControllerWithTitle(
        "Oops", "Please enter the description about what you are reporting.",
        UIAlertControllerStyleAlert);
    std::shared_ptr<UIViewController> presenterAtHandler;
    bool veilAtHandler = true;
    alert->addAction(UIAlertAction::actionWithTitle(
        "OK", UIAlertActionStyleDefault, [&](const std::shared_ptr<UIAlertAction>& action) {
            log.push_back("handler " + action->title());
            presenterAtHandler = navigation->presentedViewController();
            veilAtHandler = alert->view()->superview() != nullptr;
        }));
    bool presented = false;
    form->presentViewController(alert, true, [&] { presented = true; });
    screen.runtime.advance(1);
    EXPECT_TRUE(presented);
    EXPECT_EQ(navigation->presentedViewController(), alert);  // the root presents
    EXPECT_EQ(alert->presentingViewController(), navigation);
    EXPECT_EQ(screen.window->subviews().back(), alert->view());
    EXPECT_TRUE(form->view()->superview());  // the form stays under the veil, told nothing
    EXPECT_TRUE(log.empty());

    auto other =
        UIAlertController::alertControllerWithTitle("Second", "", UIAlertControllerStyleAlert);
    form->presentViewController(other, false);
    EXPECT_EQ(navigation->presentedViewController(), alert);  // one at a time

    std::shared_ptr<UIView> card = alert->cardView();
    Rect cardFrame = card->convertRectToView(card->bounds(), nullptr);
    EXPECT_EQ(cardFrame.size.width, 270);
    EXPECT_DOUBLE_EQ(cardFrame.origin.x + cardFrame.size.width / 2, 375 / 2.0);
    EXPECT_DOUBLE_EQ(cardFrame.origin.y + cardFrame.size.height / 2, 667 / 2.0);

    screen.tap({187, 300});  // the veil: nothing happens
    EXPECT_TRUE(log.empty());
    // The button is the card's bottom 44 points.
    screen.tap({187, cardFrame.origin.y + cardFrame.size.height - 22});
    screen.runtime.advance(1);
    EXPECT_EQ(log, (Log{"handler OK"}));
    EXPECT_EQ(presenterAtHandler, nullptr);
    EXPECT_FALSE(veilAtHandler);
    EXPECT_EQ(alert->presentingViewController(), nullptr);
}

}  // namespace
}  // namespace tarvik
