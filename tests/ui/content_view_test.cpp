#include "ui/content_view.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <filesystem>
#include <set>

#include "support/model_fixture.h"
#include "support/processes.h"
#include "support/ui_wait.h"
#include "ui/disclosure_button.h"
#include "ui/log_view.h"

namespace kestravine {
namespace {

using testing::waitFor;
using Phase = Model::Phase;
using Texts = std::vector<QString>;

// The window content on the offscreen platform, with the model's world of ModelTest.
class ContentViewTest : public testing::ModelTest {
 protected:
  void TearDown() override {
    if (view->model().canCancel()) button("取消")->click();  // stop what a test left running
    view.reset();
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
  Texts labels() const {
    Texts texts;
    for (auto* l : shown<QLabel>()) texts.push_back(l->text());
    return texts;
  }
  Texts buttons() const {
    Texts texts;
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
    waitFor([&] { return button(text) != nullptr; });
    return button(text);
  }
  DisclosureButton* detailsToggle() const {
    auto toggles = shown<DisclosureButton>();
    return toggles.empty() ? nullptr : toggles.front();
  }
  // Shows the view, installs, and waits for the failed arrangement of a script that fails.
  void failAnInstall(const std::string& body) {
    writeInstallScript(body);
    view->show();
    ASSERT_NE(waitButton("安装并打开"), nullptr);
    button("安装并打开")->click();
    ASSERT_NE(waitButton("再试一次"), nullptr);
  }
  std::unique_ptr<ContentView> view = std::make_unique<ContentView>();
};

// The arrangements, their texts and buttons, and the details that start collapsed each time.
TEST_F(ContentViewTest, ArrangementsFollowThePhase) {
  EXPECT_EQ(labels(), (Texts{"Kestravine", "看一眼这台 Mac。"}));
  EXPECT_EQ(view->size(), QSize(440, 320));
  writeInstallScript("printf '<b>x</b>\\n'; exec sleep 100");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  EXPECT_EQ(labels(), (Texts{"Kestravine会装在这台 Mac 上",
                             "数据只在这台 Mac 上，不上传。装好以后双击它就能进Varnholt。",
                             "约 3—5 分钟，看网络。要一个 Claude 账号；不用另外填钥匙。"}));
  EXPECT_EQ(buttons(), (Texts{"安装并打开"}));
  for (int round = 0; round < 2; ++round) {
    button("安装并打开")->click();
    ASSERT_TRUE(waitFor([&] { return labels().size() == 2 && labels()[1] == "<b>x</b>"; }));
    for (auto* l : shown<QLabel>()) EXPECT_EQ(l->textFormat(), Qt::PlainText);
    EXPECT_EQ(shown<LogView>().size(), 1u);
    EXPECT_EQ(buttons(), (Texts{"取消"}));
    button("取消")->click();
    ASSERT_NE(button("再试一次"), nullptr);  // at once, before any further input
    EXPECT_EQ(labels()[1], "停下了。什么都没改坏，再点一次可以重来。");
    EXPECT_TRUE(shown<LogView>().empty());  // details collapsed
    ASSERT_NE(detailsToggle(), nullptr);
    EXPECT_EQ(detailsToggle()->text(), "详情");
    detailsToggle()->click();
    ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
    EXPECT_EQ(shown<LogView>()[0]->scrollBar()->value(), 0);  // from the top
    QTest::keyClick(view.get(), Qt::Key_Return);              // the default button: retry
    ASSERT_NE(button("安装并打开"), nullptr);
    EXPECT_TRUE(view->model().lines().empty());
  }
}

TEST_F(ContentViewTest, WhileProbingThereIsNoCancelRowAndTheStatusKeepsToTwoLines) {
  writeInstallScript("for i in $(seq 200); do printf 'word '; done; echo; exit 0");
  view->show();
  ASSERT_NE(waitButton("安装并打开"), nullptr);
  button("安装并打开")->click();
  ASSERT_TRUE(waitFor([&] {
    return !view->model().canCancel() && labels().size() == 2 && labels()[1].startsWith("word");
  }));
  EXPECT_TRUE(buttons().empty());
  EXPECT_EQ(labels()[1].count('\n'), 1);
  EXPECT_TRUE(labels()[1].endsWith(QChar(0x2026)));
}

// Both clicks of a double click reach the window before the launcher has done anything with
// the first; the second must meet the working arrangement, not the install button.
TEST_F(ContentViewTest, DoubleClickOnInstallStartsOneScript) {
  writeInstallScript("exec sleep 100");
  view->show();
  QPushButton* install = waitButton("安装并打开");
  ASSERT_NE(install, nullptr);
  QWindow* window = view->window()->windowHandle();
  const QPoint at = install->mapTo(view->window(), install->rect().center());
  QTest::mouseClick(window, Qt::LeftButton, {}, at);
  QTest::mouseDClick(window, Qt::LeftButton, {}, at);
  EXPECT_EQ(testing::markedProcesses().size(), 1u);  // scripts start inside the click
}

// Keyboard: no button has the focus when an arrangement appears (Space and Return do nothing),
// Tab reaches every button, and a focused button is drawn with a mark.
TEST_F(ContentViewTest, KeyboardReachesEveryButtonButTriggersNoneUnasked) {
  writeInstallScript("exec sleep 100");
  view->show();
  QApplication::setActiveWindow(view.get());
  ASSERT_TRUE(waitFor([&] { return QApplication::activeWindow() == view.get(); }));
  auto tabStops = [&] {
    std::set<QWidget*> reached;
    for (int i = 0; i < 4; ++i) {
      QTest::keyClick(view.get(), Qt::Key_Tab);
      reached.insert(QApplication::focusWidget());
    }
    return reached;
  };
  auto expectNoButtonFocused = [&] {
    EXPECT_EQ(qobject_cast<QAbstractButton*>(QApplication::focusWidget()), nullptr);
    QTest::keyClick(view.get(), Qt::Key_Space);
    QTest::keyClick(view.get(), Qt::Key_Return);
  };
  QPushButton* install = waitButton("安装并打开");
  expectNoButtonFocused();
  EXPECT_EQ(view->model().phase(), Phase::ready);
  EXPECT_EQ(tabStops(), (std::set<QWidget*>{install}));
  const QImage focused = install->grab().toImage();
  view->setFocus();
  EXPECT_NE(install->grab().toImage(), focused);

  install->click();
  ASSERT_NE(waitButton("取消"), nullptr);
  expectNoButtonFocused();
  EXPECT_TRUE(view->model().canCancel());
  EXPECT_EQ(tabStops(), (std::set<QWidget*>{button("取消")}));
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);  // Tab, then Space: cancel
  ASSERT_NE(waitButton("再试一次"), nullptr);
  EXPECT_TRUE(button("再试一次")->isDefault());
  EXPECT_EQ(tabStops(), (std::set<QWidget*>{button("再试一次"), detailsToggle()}));
}

// The look: a theme change recolours every text and the log's indicator; the details box keeps
// its 130 and its 12 to the retry row even when that is taller than the window; screen readers
// see the buttons, the texts, the toggle's state and the log's last lines.
TEST_F(ContentViewTest, ThemeLayoutAndAccessibility) {
  failAnInstall("seq 30; exit 3");
  auto* toggle = QAccessible::queryAccessibleInterface(detailsToggle());
  EXPECT_EQ(toggle->role(), QAccessible::Button);
  EXPECT_EQ(toggle->text(QAccessible::Name), "详情");
  EXPECT_TRUE(toggle->state().expandable && toggle->state().collapsed);
  toggle->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
  EXPECT_TRUE(toggle->state().expanded);
  ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
  LogView* log = shown<LogView>()[0];
  EXPECT_EQ(QAccessible::queryAccessibleInterface(log)->text(QAccessible::Name),
            "26\n27\n28\n29\n30");
  auto* retry = QAccessible::queryAccessibleInterface(button("再试一次"));
  EXPECT_EQ(retry->text(QAccessible::Name), "再试一次");
  EXPECT_TRUE(QAccessible::queryAccessibleInterface(shown<QLabel>()[1])
                  ->text(QAccessible::Name)
                  .startsWith("没能装完（退出码 3）"));

  QApplication::processEvents();
  EXPECT_EQ(log->height(), 130);
  EXPECT_EQ(button("再试一次")->parentWidget()->mapTo(view.get(), QPoint()).y() -
                log->mapTo(view.get(), QPoint(0, log->height())).y(),
            12);

  const QPalette light = QApplication::palette();
  for (const QColor text : {QColor(0xe8, 0xe8, 0xea), QColor(Qt::black)}) {
    QPalette palette = light;
    palette.setColor(QPalette::WindowText, text);
    QApplication::setPalette(palette);
    QApplication::processEvents();
    for (auto* l : shown<QLabel>())
      EXPECT_EQ(l->palette().color(QPalette::WindowText).rgb(), text.rgb());
    EXPECT_TRUE(log->scrollBar()->styleSheet().contains(
        QString("rgba(%1, %2, %3").arg(text.red()).arg(text.green()).arg(text.blue())));
  }
  QApplication::setPalette(light);
}

TEST(ContentViewText, TitleAndTwoLineStatus) {
  EXPECT_EQ(ContentView::titleFor(""), "Kestravine");
  EXPECT_EQ(ContentView::titleFor(" "), " ");
  const QString shown = ContentView::elided(QString("状态 ").repeated(200), QFont(), 400, 2);
  EXPECT_EQ(shown.count('\n'), 1);
  EXPECT_TRUE(shown.endsWith(QChar(0x2026)));
  EXPECT_EQ(ContentView::elided("short", QFont(), 400, 2), "short");
}

// Run with KESTRAVINE_LAUNCHER_AUTOSTART=1 (see CMakeLists.txt): the install starts 0.3 s after
// the window appears, once, also after a click in the meantime, and never for an installed
// product.
using ContentViewAutostart = ContentViewTest;

TEST_F(ContentViewAutostart, InstallsOnceAfterThreeTenthsOfASecond) {
  for (bool click : {false, true}) {
    SetUp();
    view = std::make_unique<ContentView>();
    writeInstallScript("exec sleep 100");
    view->show();
    ASSERT_NE(waitButton("安装并打开"), nullptr);
    if (click) button("安装并打开")->click();
    clock().advance(std::chrono::milliseconds(299));
    EXPECT_EQ(view->model().phase(), click ? Phase::working : Phase::ready);
    clock().advance(std::chrono::milliseconds(1));
    EXPECT_EQ(view->model().phase(), Phase::working);
    EXPECT_EQ(testing::markedProcesses().size(), 1u);
    button("取消")->click();
    EXPECT_TRUE(testing::waitForNoMarkedProcess().empty());
  }
  SetUp();
  std::filesystem::create_directories(home() + "/app");
  view = std::make_unique<ContentView>();
  const auto timers = clock().pendingMainTimers();
  view->show();
  EXPECT_EQ(clock().pendingMainTimers(), timers);
}

// Run with KESTRAVINE_LAUNCHER_AUTOSTART=true: only exactly "1" counts.
using ContentViewNoAutostart = ContentViewTest;

TEST_F(ContentViewNoAutostart, OnlyExactlyOneCounts) {
  const auto timers = clock().pendingMainTimers();
  view->show();
  EXPECT_EQ(view->model().phase(), Phase::ready);
  EXPECT_EQ(clock().pendingMainTimers(), timers);
}

}  // namespace
}  // namespace kestravine
