#include "ui/content_view.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include "support/model_fixture.h"
#include "support/ui_wait.h"
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
  QToolButton* detailsToggle() const {
    for (auto* toggle : shown<QToolButton>()) {
      if (toggle->objectName() == "detailsToggle") return toggle;
    }
    return nullptr;
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
