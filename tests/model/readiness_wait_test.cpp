#include "model/readiness_wait.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "process/child.h"
#include "support/held_port.h"
#include "support/processes.h"
#include "support/test_platform.h"

namespace kestravine::testing {
namespace {

using Sight = ReadinessWait::Sight;

// The wait against a port this test holds, with real curl probes and virtual time. This program
// works in the product home, so its own socket is the product's server.
class WaitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(home_);
    ASSERT_EQ(chdir(home_.c_str()), 0);
    ASSERT_TRUE(port_.bound());
  }
  void TearDown() override {
    wait_.reset();
    settle();
  }
  void start(std::optional<StepMark> serviceStart = {}) {
    ReadinessWait::Events events;
    events.onSight = [this] { sights_.push_back(wait_->sightText()); };
    events.onReady = [this](std::vector<std::string>) { readyAt_ = platform().now(); };
    events.onFail = [this](std::vector<std::string> details, std::string failure) {
      failedAt_ = platform().now();
      details_ = std::move(details);
      failure_ = std::move(failure);
    };
    wait_ = ReadinessWait::start({port_.port(), home_, home_}, std::move(events),
                                 std::move(serviceStart));
  }
  static void settle() {
    ASSERT_TRUE(platform().runUntil([] { return Child::reportsInFlight() == 0; }));
  }
  // The probe under way has ended; what it started is pending.
  void untilProbed(std::size_t sights) {
    ASSERT_TRUE(platform().runUntil([&] { return sights_.size() >= sights || ended(); }));
  }
  // Moves virtual time on by `span`, tick by tick, each probe ended before the next tick.
  bool elapse(Delay span) {
    const Delay until = platform().now() + span;
    for (;;) {
      settle();
      if (ended() || platform().pendingMainTimers() == 0 || platform().nextTimerAt() > until) break;
      platform().advanceToNextTimer();
    }
    if (!ended()) platform().advance(until - platform().now());
    return ended();
  }
  bool ended() const { return readyAt_ || failedAt_; }
  std::string onPort(const std::string& rest) const {
    return "端口 " + std::to_string(port_.port()) + rest;
  }

  const std::string home_ = std::string(TEST_SCRATCH) + "/wait-home";
  HeldPort port_;
  std::shared_ptr<ReadinessWait> wait_;
  std::vector<std::string> sights_;
  std::optional<Delay> readyAt_;
  std::optional<Delay> failedAt_;
  std::vector<std::string> details_;
  std::string failure_;
};

// What a probe saw becomes the status; after a refused connection the port is watched and the
// next probe comes at the first listener, else 2 s later.
TEST_F(WaitTest, SaysWhatEachProbeSawAndPausesForWhatItSaw) {
  const std::tuple<std::function<void(HeldPort&)>, std::string, Delay> table[] = {
      {[](HeldPort&) {}, " 上还没有程序在听。", ReadinessWait::kWatchTick},
      {[](HeldPort& p) { p.listenSilently(); }, " 上有程序在听，但 3 秒内没有回答。",
       ReadinessWait::kPause},
      {[](HeldPort& p) { p.answer(500); }, " 回答了 HTTP 500，还不能用。", ReadinessWait::kPause},
      {[](HeldPort& p) { p.hangUp(); }, " 上有程序在听，但没回答就断开了。", ReadinessWait::kPause},
  };
  for (const auto& [behave, seen, pause] : table) {
    HeldPort held;
    behave(held);
    ReadinessWait::Events events;
    std::vector<std::string> sights;
    std::shared_ptr<ReadinessWait> wait;
    events.onSight = [&] { sights.push_back(wait->sightText()); };
    events.onReady = [](std::vector<std::string>) { FAIL() << "ready"; };
    events.onFail = [](std::vector<std::string>, std::string f) { FAIL() << f; };
    wait = ReadinessWait::start({held.port(), home_, home_}, events);
    ASSERT_TRUE(platform().runUntil([&] { return !sights.empty(); }));
    const std::string port = "端口 " + std::to_string(held.port());
    EXPECT_EQ(sights.back(), "还在等Varnholt：" + port + seen);
    EXPECT_EQ(platform().nextTimerAt() - platform().now(), pause) << seen;
    wait->cancel();
    settle();
    platform().advance(ReadinessWait::kPause);
  }
}

// A server that starts to listen mid-pause is probed at the next tick, not at the pause's end.
TEST_F(WaitTest, AListenerCutsThePauseShort) {
  start();
  untilProbed(1);
  const Delay from = platform().now();
  ASSERT_FALSE(elapse(10 * ReadinessWait::kWatchTick));
  port_.answer(200);
  ASSERT_TRUE(elapse(ReadinessWait::kPause));
  EXPECT_EQ(readyAt_, from + 11 * ReadinessWait::kWatchTick);
}

// Beside a running service start the wait opens as soon as the product answers; it never gives up
// while the start runs, and after the start's end it gives up no sooner than 45 probes with their
// pauses, starting afresh with a probe at once.
TEST_F(WaitTest, BesideTheStartNothingCountsUntilItEnds) {
  port_.answer(200);
  start(StepMark::fresh(home_));
  ASSERT_TRUE(elapse(Delay(0)));
  EXPECT_EQ(readyAt_, platform().now());

  readyAt_.reset();
  HeldPort refusing;
  wait_ = nullptr;
  ReadinessWait::Events events;
  events.onReady = [this](std::vector<std::string>) { readyAt_ = platform().now(); };
  events.onFail = [this](std::vector<std::string> details, std::string) {
    failedAt_ = platform().now();
    details_ = std::move(details);
  };
  wait_ = ReadinessWait::start({refusing.port(), home_, home_}, events, StepMark::fresh(home_));
  EXPECT_FALSE(elapse(100 * ReadinessWait::kPause));
  const Delay endedAt = platform().now() + ReadinessWait::kWatchTick / 2;
  platform().advance(ReadinessWait::kWatchTick / 2);  // mid-pause
  wait_->serviceStartEnded(0);
  EXPECT_FALSE(elapse(ReadinessWait::kProbes * ReadinessWait::kPause - Delay(1)));
  EXPECT_TRUE(elapse(Delay(1)));
  ASSERT_TRUE(failedAt_);
  EXPECT_EQ(*failedAt_ - endedAt, ReadinessWait::kProbes * ReadinessWait::kPause);
  EXPECT_EQ(details_.back(),
            "最后一次探测：端口 " + std::to_string(refusing.port()) + " 上还没有程序在听。");
}

// Cancelled mid-probe or mid-pause: no event follows, no timer is left, nothing runs.
TEST_F(WaitTest, CancelEndsTheWaitWhereverItIs) {
  for (bool midProbe : {true, false}) {
    HeldPort held;
    midProbe ? held.listenSilently() : held.answer(503);
    ReadinessWait::Events events;
    int told = 0;
    events.onSight = [&] { ++told; };
    events.onReady = [&](std::vector<std::string>) { ++told; };
    events.onFail = [&](std::vector<std::string>, std::string) { ++told; };
    auto wait = ReadinessWait::start({held.port(), home_, home_}, events);
    if (!midProbe) ASSERT_TRUE(platform().runUntil([&] { return told == 1; }));
    wait->cancel();
    settle();
    platform().advance(ReadinessWait::kPause);
    EXPECT_EQ(told, midProbe ? 0 : 1);
    EXPECT_EQ(platform().pendingMainTimers(), 0u);
    EXPECT_EQ(Child::reportsInFlight(), 0u);
  }
}

TEST(WaitSight, CurlsStatusesTellWhatItSaw) {
  const std::tuple<std::int32_t, int, Sight::Kind> table[] = {
      {7, 0, Sight::Kind::nothingListens}, {28, 0, Sight::Kind::silent},
      {52, 0, Sight::Kind::hungUp},        {56, 0, Sight::Kind::hungUp},
      {22, 503, Sight::Kind::status},      {127, 0, Sight::Kind::none},
  };
  for (const auto& [status, code, kind] : table) {
    EXPECT_EQ(ReadinessWait::sightOf(status, code).kind, kind) << status;
  }
  EXPECT_EQ(ReadinessWait::describe(5199, {}), "");
}

}  // namespace
}  // namespace kestravine::testing
