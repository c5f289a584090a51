#include "ui/content_view.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <functional>
#include <set>

#include "support/model_fixture.h"
#include "support/ui_wait.h"
#include "ui/disclosure_button.h"
#include "ui/log_view.h"
#include "ui/style.h"

namespace kestravine::testing {
namespace {

using Phase = Model::Phase;
using Texts = QStringList;

// The window content on the offscreen platform, with the model's world of ModelTest.
class ContentViewTest : public ModelTest {
 protected:
  void TearDown() override {
    if (view->model().canCancel()) button("取消", false)->click();  // stop what a test left
    view.reset();
    ModelTest::TearDown();
  }
  template <typename W>
  QList<W*> shown() const {
    QList<W*> all = view->findChildren<W*>();
    all.removeIf([&](W* w) { return !w->isVisibleTo(view.get()); });
    return all;
  }
  template <typename W>
  Texts texts() const {
    Texts texts;
    for (auto* w : shown<W>()) texts.push_back(w->text());
    return texts;
  }
  // The button showing `text`; unless `wait` is false, once the view has rendered it.
  QPushButton* button(const QString& text, bool wait = true) {
    auto find = [&] {
      const auto all = shown<QPushButton>();
      const auto it =
          std::find_if(all.begin(), all.end(), [&](auto* b) { return b->text() == text; });
      return it == all.end() ? nullptr : *it;
    };
    if (wait) waitFor([&] { return find() != nullptr; });
    return find();
  }
  DisclosureButton* toggle() const { return shown<DisclosureButton>().value(0); }
  // Runs `check` in a dark theme (a dark window and base under light text), a light one, and one
  // whose grey text leaves the weaker levels no room at all; then restores the theme.
  void inEachTheme(const std::function<void(QColor text, QColor window, QColor base)>& check) {
    const QPalette light = QApplication::palette();
    const std::tuple<QColor, QColor, QColor> themes[] = {
        {QColor(0xe8, 0xe8, 0xea), QColor(0x32, 0x32, 0x34), QColor(0x1e, 0x1e, 0x20)},
        {QColor(Qt::black), QColor(0xef, 0xef, 0xef), QColor(Qt::white)},
        {QColor(0x70, 0x70, 0x70), QColor(0xfa, 0xfa, 0xfa), QColor(Qt::white)},
    };
    for (const auto& [text, window, base] : themes) {
      QPalette palette = light;
      for (auto role : {QPalette::WindowText, QPalette::ButtonText}) palette.setColor(role, text);
      palette.setColor(QPalette::Window, window);
      palette.setColor(QPalette::Base, base);
      QApplication::setPalette(palette);
      QApplication::processEvents();
      check(text, window, base);
    }
    QApplication::setPalette(light);
  }
  // Every shown text stands out from `window` by 4.5:1.
  void expectTextsStandOut(const QColor& window) {
    for (auto* l : shown<QLabel>()) {
      EXPECT_GE(style::contrast(l->palette().color(QPalette::WindowText), window), 4.5)
          << l->text().toStdString();
    }
  }
  // Shows the view with `body` as the install script, and its install button.
  QPushButton* showWithScript(const std::string& body) {
    writeInstallScript(body);
    view->show();
    return button("安装并打开");
  }
  std::unique_ptr<ContentView> view = std::make_unique<ContentView>();
};

// The install offer shown in an active window, with a script that prints a line with markup
// and waits.
class Arrangements : public ContentViewTest {
 protected:
  void SetUp() override {
    ContentViewTest::SetUp();
    install = showWithScript("printf '<b>x</b>\\n'; exec sleep 100");
    ASSERT_NE(install, nullptr);
    QApplication::setActiveWindow(view.get());
    ASSERT_TRUE(waitFor([&] { return QApplication::activeWindow() == view.get(); }));
  }
  // Unless `unfocused` is false: no button has the focus but the view, named by the headline,
  // so Space and Return trigger nothing. Then Tab reaches exactly `stops`.
  void expectKeys(std::set<QWidget*> stops, bool unfocused = true) {
    if (unfocused) EXPECT_EQ(QApplication::focusWidget(), view.get());
    EXPECT_EQ(view->accessibleName(), ContentView::titleFor(view->model().headline()));
    if (unfocused) QTest::keyClicks(view.get(), " \r");  // Space, Return
    std::set<QWidget*> reached;
    for (int i = 0; i < 4; ++i) {
      QTest::keyClick(view.get(), Qt::Key_Tab);
      reached.insert(QApplication::focusWidget());
    }
    EXPECT_EQ(reached, stops);
  }
  // Clicks the install and waits for the working arrangement with the script's line.
  void startInstall() {
    install->click();
    ASSERT_TRUE(
        waitFor([&] { return texts<QLabel>().size() == 2 && texts<QLabel>()[1] == "<b>x</b>"; }));
  }
  QPushButton* install = nullptr;
};

TEST_F(ContentViewTest, TheCheckingArrangementFillsTheWindowsFixedSize) {
  EXPECT_EQ(texts<QLabel>(), (Texts{"Kestravine", "看一眼这台电脑。"}));
  EXPECT_EQ(view->size(), QSize(440, 320));
}

// The offer: its texts, one large button (what the button needs in the font it is drawn in,
// and 16 by 8 more), and no automatic start unless the switch is exactly "1".
TEST_F(Arrangements, TheInstallOfferShowsItsTextsAndOneLargeButton) {
  EXPECT_EQ(texts<QLabel>(), (Texts{"Kestravine会装在这台电脑上",
                                    "数据只在这台电脑上，不上传。装好以后打开它就能进Varnholt。",
                                    "约 3—5 分钟，看网络。要一个 Claude 账号；不用另外填钥匙。"}));
  EXPECT_EQ(texts<QPushButton>(), (Texts{"安装并打开"}));
  EXPECT_EQ(install->minimumSize(), install->sizeHint() + QSize(16, 8));
  platform().advance(std::chrono::milliseconds(300));  // autostart is set, but not to "1"
  EXPECT_EQ(view->model().phase(), Phase::ready);
}

// When an arrangement appears no button has the focus (Space and Return do nothing); Tab
// reaches every button, which shows a mark once it has the focus, and in the working
// arrangement the log too.
TEST_F(Arrangements, NoButtonHasTheFocusWhenAnArrangementAppearsAndTabReachesEach) {
  const QImage unfocused = install->grab().toImage();
  expectKeys({install});
  EXPECT_NE(install->grab().toImage(), unfocused);  // the focused button is drawn with a mark
  ASSERT_EQ(view->model().phase(), Phase::ready);   // Space and Return pressed nothing
  install->click();
  ASSERT_NE(button("取消"), nullptr);
  ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
  expectKeys({button("取消"), shown<LogView>()[0]});
  EXPECT_TRUE(view->model().canCancel());
  QTest::keyClick(view.get(), Qt::Key_Escape);
  ASSERT_NE(button("再试一次", false), nullptr);
  ASSERT_NE(toggle(), nullptr);
  expectKeys({button("再试一次"), toggle()}, false);
}

// Both clicks of a double click reach the window before the launcher has done anything with
// the first: the second meets the working arrangement and starts no second script. Output is
// shown as plain text.
TEST_F(Arrangements, ADoubleClickStartsOneScript) {
  const QPoint at = install->mapTo(view.get(), install->rect().center());
  QTest::mouseDClick(view->windowHandle(), Qt::LeftButton, {}, at);
  EXPECT_TRUE(eventually([] { return markedProcesses().size() == 1; }));
  ASSERT_TRUE(
      waitFor([&] { return texts<QLabel>().size() == 2 && texts<QLabel>()[1] == "<b>x</b>"; }));
  for (auto* l : shown<QLabel>()) EXPECT_EQ(l->textFormat(), Qt::PlainText);
  EXPECT_EQ(shown<LogView>().size(), 1);
  EXPECT_EQ(texts<QPushButton>(), (Texts{"取消"}));
  settle(1);
  EXPECT_EQ(markedProcesses().size(), 1u);
}

// Return on the focused cancel button, or Escape anywhere, cancels: the failed arrangement
// appears at once, before any further input, with the details collapsed and retry as the
// default button.
TEST_F(Arrangements, ReturnOnTheFocusedCancelButtonOrEscapeCancels) {
  for (bool escape : {false, true}) {
    startInstall();
    if (escape) {
      QTest::keyClick(view.get(), Qt::Key_Escape);
    } else {
      button("取消")->setFocus();
      QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    }
    ASSERT_NE(button("再试一次", false), nullptr) << escape;
    EXPECT_TRUE(button("再试一次", false)->isDefault());
    EXPECT_EQ(texts<QLabel>()[1], "停下了。什么都没改坏，再点一次可以重来。");
    EXPECT_TRUE(shown<LogView>().empty());  // details collapsed
    ASSERT_NE(toggle(), nullptr);
    EXPECT_EQ(toggle()->text(), "详情");
    view->setFocus();
    QTest::keyClick(view.get(), Qt::Key_Return);  // retry
    install = button("安装并打开", false);
    ASSERT_NE(install, nullptr);
  }
}

// Return on the focused details toggle toggles them; elsewhere it is the default button's: a
// retry, which starts anew without the old lines.
TEST_F(Arrangements, ReturnTogglesTheFocusedDetailsAndElsewhereRetries) {
  startInstall();
  QTest::keyClick(view.get(), Qt::Key_Escape);
  ASSERT_NE(toggle(), nullptr);
  toggle()->setFocus();
  QTest::keyClick(toggle(), Qt::Key_Return);
  ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
  EXPECT_EQ(view->model().phase(), Phase::failed);
  view->setFocus();
  QTest::keyClick(view.get(), Qt::Key_Return);
  ASSERT_NE(button("安装并打开", false), nullptr);
  EXPECT_TRUE(view->model().lines().empty());
}

// A newer version in the package: both versions named, the update as the large button and the
// installed version beside it as a flat one, both within the window, which starts the installed
// version. (The keys of this offer: tests/app/update_test.sh.)
TEST_F(ContentViewTest, TheUpdateOfferNamesBothVersionsAndKeepsTheInstalledOneAtHand) {
  writeFile(home() + "/app/package.json",
            R"({"version": "0.1.0", "scripts": {"zorvel:up": "exec sleep 100"}})");
  writeInstallScript("exec sleep 100");
  view->show();
  QPushButton* update = button("更新并打开");
  ASSERT_NE(update, nullptr);
  EXPECT_EQ(texts<QLabel>(),
            (Texts{"这个安装包里有新版本的Varnholt", "这台电脑上是 0.1.0，这个安装包里是 2.0.1。",
                   "约 3—5 分钟，看网络。没更新完的话，现在的版本照样能用。"}));
  EXPECT_EQ(texts<QPushButton>(), (Texts{"更新并打开", "先打开现在的版本"}));
  QPushButton* current = button("先打开现在的版本");
  EXPECT_TRUE(current->isFlat());
  EXPECT_FALSE(update->isFlat());
  EXPECT_EQ(update->minimumSize(), update->sizeHint() + QSize(16, 8));
  EXPECT_LE(current->mapTo(view.get(), QPoint(current->width(), 0)).x(), 420);
  EXPECT_TRUE(markedProcesses().empty());

  // Light and dark: every text of the offer stands out from the window by 4.5:1.
  inEachTheme([&](QColor, QColor window, QColor) { expectTextsStandOut(window); });
  current->click();
  EXPECT_EQ(view->model().headline(), "Varnholt已经在这台电脑上了");
  EXPECT_EQ(view->model().phase(), Phase::working);
}

// The product answers while its start command runs: once the page has opened, nothing is left
// to cancel, and the cancel button goes.
TEST_F(ContentViewTest, OnceThePageHasOpenedNothingIsLeftToCancel) {
  server::serve([](int) { return 200; });
  const std::string gate = record() + "/gate";
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  installProduct("read -r _ < '" + gate + "'");
  view->show();
  ASSERT_TRUE(waitFor([&] { return texts<QLabel>().contains("打开了。"); }));
  EXPECT_EQ(texts<QPushButton>(), Texts{});
  writeFile(gate, "go\n");
}

TEST_F(ContentViewTest, AStatusOfManyLinesKeepsToTwoBesideTheCancel) {
  showWithScript("for i in $(seq 200); do printf '状态 '; done; echo; exec sleep 1000")->click();
  // The view renders at its own pace after the model's change: wait for what it shows.
  ASSERT_TRUE(waitFor([&] {
    return shown<QPushButton>().size() == 1 && texts<QLabel>().size() == 2 &&
           texts<QLabel>()[1].startsWith("状态");
  }));
  const QString status = texts<QLabel>()[1];
  EXPECT_TRUE(status.startsWith("状态") && status.endsWith(QChar(0x2026))) << status.toStdString();
  EXPECT_EQ(status.count('\n'), 1);
  button("取消")->click();
}

// A failed install of 30 lines, its details expanded: the log, once every line has arrived.
class FailedWithDetails : public ContentViewTest {
 protected:
  void SetUp() override {
    ContentViewTest::SetUp();
    showWithScript("seq 30; exit 3")->click();
    ASSERT_NE(button("再试一次"), nullptr);
    // Lines may still arrive after the exit: wait for all of them, so that the expanded log
    // shows them at once.
    ASSERT_TRUE(waitFor([&] { return view->model().lines().size() == 30; }));
    toggle()->click();
    ASSERT_TRUE(waitFor([&] { return shown<LogView>().size() == 1; }));
    log = shown<LogView>()[0];
    QApplication::processEvents();
  }
  LogView* log = nullptr;
};

// The lines "1" to "30" of the failed install, as one text.
QString allLines() {
  QString all;
  for (int i = 1; i <= 30; ++i) all += QString::number(i) + (i < 30 ? "\n" : "");
  return all;
}

// The details open on their last line, 130 high, 12 above the retry row.
TEST_F(FailedWithDetails, DetailsOpenOnTheirLastLineAndKeepTheirPlace) {
  EXPECT_EQ(log->height(), 130);
  EXPECT_GT(log->endPosition(), 0);
  EXPECT_EQ(log->scrollBar()->value(), log->endPosition());  // the last line in view
  EXPECT_EQ(button("再试一次")->parentWidget()->mapTo(view.get(), QPoint()).y() -
                log->mapTo(view.get(), QPoint(0, log->height())).y(),
            12);
}

// The log scrolls by Home, Page Down and the arrows, and copies every line.
TEST_F(FailedWithDetails, TheLogScrollsByKeyAndCopiesEveryLine) {
  log->setFocus();
  for (auto [key, position] : {std::pair{Qt::Key_Home, 0},
                               {Qt::Key_PageDown, log->height()},
                               {Qt::Key_Up, log->height() - log->scrollBar()->singleStep()}}) {
    QTest::keyClick(log, key);
    EXPECT_EQ(log->scrollBar()->value(), position) << key;
  }
  QTest::keySequence(log, QKeySequence::Copy);
  EXPECT_EQ(QGuiApplication::clipboard()->text(), allLines() + "\n");
}

// A theme change recolours every text and the log's indicator, and every text stands out from
// its background by 4.5:1 in a light and a dark theme.
TEST_F(FailedWithDetails, EveryTextStandsOutInLightAndDarkThemes) {
  inEachTheme([&](QColor text, QColor window, QColor base) {
    expectTextsStandOut(window);
    EXPECT_GE(style::contrast(log->rowColour(), style::blend(base, 0.5, window)), 4.5);
    EXPECT_TRUE(log->scrollBar()->styleSheet().contains(
        QString("rgba(%1, %2, %3").arg(text.red()).arg(text.green()).arg(text.blue())));
  });
}

// Run with KESTRAVINE_LAUNCHER_AUTOSTART=1 (see CMakeLists.txt): the install starts 0.3 s after
// the window appears, once, also after a click in the meantime, and never for an installed
// product. (An update on offer starts by itself as well: tests/app/update_test.sh.)
using ContentViewAutostart = ContentViewTest;

TEST_F(ContentViewAutostart, InstallsOnceAfterThreeTenthsOfASecond) {
  for (bool click : {false, true}) {
    fresh();
    view = std::make_unique<ContentView>();
    QPushButton* install = showWithScript("exec sleep 100");
    ASSERT_NE(install, nullptr);
    if (click) install->click();
    platform().advance(std::chrono::milliseconds(299));
    EXPECT_EQ(view->model().phase(), click ? Phase::working : Phase::ready);
    platform().advance(std::chrono::milliseconds(1));
    EXPECT_EQ(view->model().phase(), Phase::working);
    EXPECT_TRUE(eventually([] { return markedProcesses().size() == 1; }));
    button("取消", false)->click();
    EXPECT_TRUE(waitForNoMarkedProcess().empty());
  }
  fresh();
  std::filesystem::create_directories(home() + "/app");
  view = std::make_unique<ContentView>();
  const auto timers = platform().pendingMainTimers();
  view->show();
  EXPECT_EQ(platform().pendingMainTimers(), timers);
}

}  // namespace
}  // namespace kestravine::testing
