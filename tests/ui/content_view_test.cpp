#include "ui/content_view.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include <QAccessible>
#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTest>

#include "support/model_fixture.h"
#include "support/ui_wait.h"
#include "ui/disclosure_button.h"
#include "ui/log_view.h"

namespace kestravine {
namespace {

using testing::waitFor;
using Phase = Model::Phase;

constexpr const char* kReadyHeadline = "Kestravine会装在这台 Mac 上";
constexpr const char* kDescription = "数据只在这台 Mac 上，不上传。装好以后双击它就能进Varnholt。";
constexpr const char* kNote = "约 3—5 分钟，看网络。要一个 Claude 账号；不用另外填钥匙。";

class ContentViewTest : public testing::ModelTest {
 protected:
  void TearDown() override {
    // Stop what a test left running, the way a user would.
    if (view->model().canCancel()) {
      if (auto* cancel = waitButton("取消")) cancel->click();
    }
    view.reset();  // its model, and with it any flow still running, goes first
    ModelTest::TearDown();
  }

  template <typename W>
  std::vector<W*> shown() const {
    std::vector<W*> result;
    for (W* w : view->findChildren<W*>()) {
      if (w->isVisibleTo(view.get())) result.push_back(w);
    }
    return result;
  }
  std::vector<QString> labels() const {
    std::vector<QString> texts;
    for (auto* l : shown<QLabel>()) texts.push_back(l->text());
    return texts;
  }
  std::vector<QString> buttons() const {
    std::vector<QString> texts;
    for (auto* b : shown<QPushButton>()) texts.push_back(b->text());
    return texts;
  }
  QPushButton* button(const QString& text) const {
    for (auto* b : shown<QPushButton>()) {
      if (b->text() == text) return b;
    }
    return nullptr;
  }
  // The button, once the view has rendered it.
  QPushButton* waitButton(const QString& text) {
    QPushButton* found = nullptr;
    waitFor([&] { return (found = button(text)) != nullptr; });
    return found;
  }
  DisclosureButton* detailsToggle() const {
    auto toggles = shown<DisclosureButton>();
    return toggles.empty() ? nullptr : toggles.front();
  }
  void pressReturn() {
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    QKeyEvent release(QEvent::KeyRelease, Qt::Key_Return, Qt::NoModifier);
    QApplication::sendEvent(
        view->window()->focusWidget() ? view->window()->focusWidget() : view.get(), &press);
    QApplication::sendEvent(view.get(), &release);
  }
  void prepareInstall(const std::string& body) {
    writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
    writeInstallScript(body);
  }

  std::unique_ptr<ContentView> view = std::make_unique<ContentView>();
};

TEST_F(ContentViewTest, BeforeItAppearsItShowsTheCheckingMessage) {
  EXPECT_EQ(labels(), (std::vector<QString>{"Kestravine", "看一眼这台 Mac。"}));
  EXPECT_TRUE(buttons().empty());
  EXPECT_EQ(view->size(), QSize(440, 320));
}

TEST_F(ContentViewTest, AppearingChecksAndOffersTheInstallWithoutAnyKeyBound) {
  view->show();
  ASSERT_TRUE(waitFor([&] { return labels().size() == 3; }));
  EXPECT_EQ(labels(), (std::vector<QString>{kReadyHeadline, kDescription, kNote}));
  EXPECT_EQ(buttons(), (std::vector<QString>{"安装并打开"}));
  pressReturn();
  waitFor([] { return false; }, std::chrono::milliseconds(50));
  EXPECT_EQ(view->model().phase(), Phase::ready);
}

TEST_F(ContentViewTest, InstallCancelDetailsAndRetry) {
  prepareInstall("printf '<b>bold</b>\\n*star*\\n[x](y) \\\\\\\\ &amp;\\n'; exec sleep 100");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  button("安装并打开")->click();
  ASSERT_TRUE(waitFor([&] { return labels().size() == 2 && labels()[1] == "[x](y) \\\\ &amp;"; }));
  for (auto* l : shown<QLabel>()) EXPECT_EQ(l->textFormat(), Qt::PlainText);
  EXPECT_EQ(shown<LogView>().size(), 1u);
  EXPECT_EQ(buttons(), (std::vector<QString>{"取消"}));
  pressReturn();  // no key is bound while working
  EXPECT_EQ(view->model().phase(), Phase::working);

  button("取消")->click();
  ASSERT_NE(waitButton("再试一次"), nullptr);
  ASSERT_TRUE(waitFor([&] { return labels().size() == 2; }));
  EXPECT_EQ(labels()[1], "停下了。什么都没改坏，再点一次可以重来。");
  EXPECT_TRUE(shown<LogView>().empty());  // details start collapsed
  ASSERT_NE(detailsToggle(), nullptr);
  EXPECT_EQ(detailsToggle()->text(), "详情");
  ASSERT_NE(button("再试一次"), nullptr);
  EXPECT_TRUE(button("再试一次")->isDefault());

  detailsToggle()->click();
  ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
  EXPECT_EQ(shown<LogView>()[0]->scrollBar()->value(), 0);

  view->window()->activateWindow();
  pressReturn();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  EXPECT_EQ(view->model().phase(), Phase::ready);
  EXPECT_TRUE(view->model().lines().empty());
}

// Both clicks of a double click reach the window before the launcher has done anything with
// the first; the second must meet the working arrangement, not the install button.
TEST_F(ContentViewTest, DoubleClickOnInstallStartsOneScript) {
  prepareInstall("exec sleep 100");
  view->show();
  QPushButton* install = waitButton("安装并打开");
  ASSERT_NE(install, nullptr);
  QWindow* window = view->window()->windowHandle();
  ASSERT_NE(window, nullptr);
  const QPoint at = install->mapTo(view->window(), install->rect().center());
  QTest::mouseClick(window, Qt::LeftButton, {}, at);
  QTest::mouseDClick(window, Qt::LeftButton, {}, at);
  EXPECT_EQ(testing::liveDescendants().size(), 1u);  // scripts start inside the click
  EXPECT_EQ(buttons(), (std::vector<QString>{"取消"}));
}

TEST_F(ContentViewTest, WhileProbingThereIsNoCancelRow) {
  prepareInstall("echo done; exit 0");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  button("安装并打开")->click();
  ASSERT_TRUE(waitFor([&] {
    return !view->model().canCancel() && view->model().phase() == Phase::working &&
           shown<LogView>().size() == 1;
  }));
  EXPECT_TRUE(waitFor([&] { return buttons().empty(); }));
}

TEST_F(ContentViewTest, DetailsAreCollapsedEachTimeAFailureIsShown) {
  prepareInstall("echo broken; exit 3");
  view->show();
  for (int round = 0; round < 2; ++round) {
    ASSERT_NE(waitButton("安装并打开"), nullptr);
    button("安装并打开")->click();
    ASSERT_NE(waitButton("再试一次"), nullptr);
    ASSERT_TRUE(waitFor([&] { return detailsToggle() != nullptr; }));
    EXPECT_FALSE(detailsToggle()->isChecked()) << round;
    EXPECT_TRUE(shown<LogView>().empty()) << round;
    detailsToggle()->click();
    ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
    button("再试一次")->click();
  }
}

// Keyboard: no button has the focus when an arrangement appears (Space and Return do nothing
// there), Tab reaches every button, a focused button is drawn differently, and in the failed
// arrangement the retry button is the default.
TEST_F(ContentViewTest, KeyboardReachesEveryButtonButTriggersNoneUnasked) {
  prepareInstall("echo broken; read -r _ < /dev/null; exec sleep 100");
  view->show();
  QApplication::setActiveWindow(view.get());
  ASSERT_TRUE(waitFor([&] { return QApplication::activeWindow() == view.get(); }));
  auto tabStops = [&] {
    std::set<QWidget*> reached;
    for (int i = 0; i < 6; ++i) {
      QTest::keyClick(view.get(), Qt::Key_Tab);
      reached.insert(QApplication::focusWidget());
    }
    return reached;
  };
  auto focusedButton = [] { return qobject_cast<QAbstractButton*>(QApplication::focusWidget()); };

  ASSERT_NE(waitButton("安装并打开"), nullptr);
  EXPECT_EQ(focusedButton(), nullptr);
  QTest::keyClick(view.get(), Qt::Key_Space);
  QTest::keyClick(view.get(), Qt::Key_Return);
  EXPECT_EQ(view->model().phase(), Phase::ready);
  EXPECT_EQ(tabStops(), (std::set<QWidget*>{button("安装并打开")}));
  QPushButton* install = button("安装并打开");
  const QImage focused = install->grab().toImage();
  view->setFocus();
  EXPECT_NE(install->grab().toImage(), focused);  // the focus mark

  install->click();
  ASSERT_NE(waitButton("取消"), nullptr);
  EXPECT_EQ(focusedButton(), nullptr);
  QTest::keyClick(view.get(), Qt::Key_Space);
  EXPECT_TRUE(view->model().canCancel());
  EXPECT_EQ(tabStops(), (std::set<QWidget*>{button("取消")}));

  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);  // Tab, then Space: cancel
  ASSERT_NE(waitButton("再试一次"), nullptr);
  EXPECT_TRUE(button("再试一次")->isDefault());
  EXPECT_EQ(tabStops(), (std::set<QWidget*>{button("再试一次"), detailsToggle()}));
}

TEST_F(ContentViewTest, ThemeChangeRecoloursEveryText) {
  prepareInstall("echo broken; exit 3");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  button("安装并打开")->click();
  ASSERT_NE(waitButton("再试一次"), nullptr);
  detailsToggle()->click();
  const QPalette light = QApplication::palette();
  for (const QColor text : {QColor(0xe8, 0xe8, 0xea), QColor(Qt::black)}) {
    QPalette palette = light;
    palette.setColor(QPalette::WindowText, text);
    QApplication::setPalette(palette);
    QApplication::processEvents();
    for (auto* l : shown<QLabel>()) {
      EXPECT_EQ(l->palette().color(QPalette::WindowText).rgb(), text.rgb())
          << l->text().toStdString();
    }
    EXPECT_TRUE(shown<LogView>()[0]->scrollBar()->styleSheet().contains(
        QString("rgba(%1, %2, %3").arg(text.red()).arg(text.green()).arg(text.blue())));
  }
  QApplication::setPalette(light);
}

// The failed arrangement with its details open keeps every element at its own size, even when
// that is taller than the window: the box is 130 high and 12 above the retry row.
TEST_F(ContentViewTest, ExpandedDetailsKeepTheirSizeAndGap) {
  prepareInstall("seq 30; exit 3");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  button("安装并打开")->click();
  ASSERT_NE(waitButton("再试一次"), nullptr);
  detailsToggle()->click();
  ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
  QApplication::processEvents();
  LogView* log = shown<LogView>()[0];
  QWidget* retryRow = button("再试一次")->parentWidget();
  EXPECT_EQ(log->height(), 130);
  const QPoint logBottom = log->mapTo(view.get(), QPoint(0, log->height()));
  EXPECT_EQ(retryRow->mapTo(view.get(), QPoint(0, 0)).y() - logBottom.y(), 12);
}

TEST_F(ContentViewTest, ScreenReadersSeeButtonsTextsToggleAndLog) {
  prepareInstall("echo first; echo last; exit 3");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  auto* install = QAccessible::queryAccessibleInterface(button("安装并打开"));
  EXPECT_EQ(install->role(), QAccessible::Button);
  EXPECT_EQ(install->text(QAccessible::Name), "安装并打开");
  button("安装并打开")->click();
  ASSERT_NE(waitButton("再试一次"), nullptr);
  auto* toggle = QAccessible::queryAccessibleInterface(detailsToggle());
  EXPECT_EQ(toggle->role(), QAccessible::Button);
  EXPECT_EQ(toggle->text(QAccessible::Name), "详情");
  EXPECT_TRUE(toggle->state().expandable);
  EXPECT_TRUE(toggle->state().collapsed);
  toggle->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
  EXPECT_TRUE(toggle->state().expanded);
  ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
  auto* log = QAccessible::queryAccessibleInterface(shown<LogView>()[0]);
  EXPECT_EQ(log->text(QAccessible::Name), "first\nlast");
  auto* failure = QAccessible::queryAccessibleInterface(shown<QLabel>()[1]);
  EXPECT_TRUE(failure->text(QAccessible::Name).startsWith("没能装完（退出码 3）"));
}

TEST(ContentViewText, TitleAndTwoLineStatus) {
  EXPECT_EQ(ContentView::titleFor(""), "Kestravine");
  EXPECT_EQ(ContentView::titleFor(" "), " ");
  const QFont font;
  const QString longText = QString("状态 ").repeated(200);
  const QString shown = ContentView::elided(longText, font, 400, 2);
  EXPECT_EQ(shown.count('\n'), 1);
  EXPECT_TRUE(shown.endsWith(QChar(0x2026)));
  EXPECT_EQ(ContentView::elided("short", font, 400, 2), "short");
}

// Run with KESTRAVINE_LAUNCHER_AUTOSTART=1 (see CMakeLists.txt).
using ContentViewAutostart = ContentViewTest;

TEST_F(ContentViewAutostart, InstallsOnceAfterThreeTenthsOfASecond) {
  prepareInstall("echo run >> '" + record() + "/runs'; exec sleep 100");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  clock().advance(std::chrono::milliseconds(299));
  EXPECT_EQ(view->model().phase(), Phase::ready);
  clock().advance(std::chrono::milliseconds(1));
  EXPECT_EQ(view->model().phase(), Phase::working);
  ASSERT_TRUE(waitFor([&] { return readLines(record() + "/runs").size() == 1; }));
}

TEST_F(ContentViewAutostart, AClickBeforehandIsNotFollowedByASecondInstall) {
  prepareInstall("echo run >> '" + record() + "/runs'; echo started; exec sleep 100");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  button("安装并打开")->click();
  clock().advance(std::chrono::milliseconds(300));
  ASSERT_TRUE(waitFor([&] { return !view->model().lines().empty(); }));
  EXPECT_EQ(readLines(record() + "/runs").size(), 1u);
  EXPECT_EQ(testing::liveDescendants().size(), 1u);  // one script (exec'd into sleep)
}

TEST_F(ContentViewAutostart, InstalledProductOnlyChecks) {
  std::filesystem::create_directories(home() + "/app");
  const auto timers = clock().pendingMainTimers();
  view->show();
  EXPECT_EQ(view->model().phase(), Phase::working);  // services start, no install scheduled
  EXPECT_EQ(clock().pendingMainTimers(), timers);
}

// Run with KESTRAVINE_LAUNCHER_AUTOSTART=true.
using ContentViewNoAutostart = ContentViewTest;

TEST_F(ContentViewNoAutostart, OnlyExactlyOneCounts) {
  const auto timers = clock().pendingMainTimers();
  view->show();
  EXPECT_EQ(view->model().phase(), Phase::ready);
  EXPECT_EQ(clock().pendingMainTimers(), timers);
}

}  // namespace
}  // namespace kestravine
