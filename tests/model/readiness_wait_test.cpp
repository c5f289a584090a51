#include "model/readiness_wait.h"

#include <gmock/gmock.h>

#include "support/held_port.h"
#include "support/model_fixture.h"

namespace kestravine::testing {
namespace {

// The wait against a port this test holds, with real curl probes and virtual time, in the
// model's world without a model flow: this program works in the product home, so its own
// socket is the product's server.
class WaitTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    ASSERT_TRUE(port_.bound());
  }
  void TearDown() override {
    wait_.reset();
    ModelTest::TearDown();
  }
  // Starts a wait on `port` (the held one by default), which tells this fixture what it sees.
  void start(std::optional<StepMark> serviceStart = {}, int port = 0) {
    sights_.clear();
    readyAt_.reset();
    failedAt_.reset();
    ReadinessWait::Events events;
    events.onSight = [this] { sights_.push_back(wait_->sightText()); };
    events.onReady = [this](std::vector<std::string>) { readyAt_ = platform().now(); };
    events.onFail = [this](std::vector<std::string> details, std::string) {
      failedAt_ = platform().now();
      details_ = std::move(details);
    };
    wait_ = ReadinessWait::start({port ? port : port_.port(), home(), home()}, std::move(events),
                                 std::move(serviceStart));
  }
  // The probe under way has ended; what it started is pending.
  void untilProbed(std::size_t sights) {
    ASSERT_TRUE(platform().runUntil([&] { return sights_.size() >= sights || ended(); }));
  }
  // Moves virtual time on by `span`; whether the wait has ended by then.
  bool elapse(Delay span) {
    EXPECT_TRUE(ModelTest::elapse(span));
    return ended();
  }
  bool ended() const { return readyAt_ || failedAt_; }

  HeldPort port_;
  std::shared_ptr<ReadinessWait> wait_;
  std::vector<std::string> sights_;
  std::optional<Delay> readyAt_;
  std::optional<Delay> failedAt_;
  std::vector<std::string> details_;
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
    start({}, held.port());
    untilProbed(1);
    EXPECT_FALSE(ended());
    EXPECT_EQ(sights_.back(), "还在等Varnholt：端口 " + std::to_string(held.port()) + seen);
    EXPECT_EQ(platform().nextTimerAt() - platform().now(), pause) << seen;
    wait_->cancel();
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
  start(StepMark::fresh(home()));
  ASSERT_TRUE(elapse(Delay(0)));
  EXPECT_EQ(readyAt_, platform().now());

  HeldPort refusing;
  start(StepMark::fresh(home()), refusing.port());
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

// Cancelled wherever it is: no event follows, no timer is left, nothing runs.
TEST_F(WaitTest, CancelEndsTheWaitWhereverItIs) {
  // Mid-probe (a silent server), in a pause (503), watching for a listener (nothing listens).
  for (int where : {0, 1, 2}) {
    HeldPort held;
    if (where < 2) where == 0 ? held.listenSilently() : held.answer(503);
    start({}, held.port());
    if (where > 0) untilProbed(1);
    wait_->cancel();
    if (where == 2) held.answer(200);  // a listener, which a watching wait would probe
    settle();
    platform().advance(ReadinessWait::kPause);
    settle();
    EXPECT_EQ(sights_.size(), where > 0 ? 1u : 0u) << where;
    EXPECT_FALSE(ended()) << where;
    if (where == 2) EXPECT_EQ(held.taken(), 0) << "probed after the cancel";
    EXPECT_EQ(platform().pendingMainTimers(), 0u) << where;
  }
}

}  // namespace
}  // namespace kestravine::testing
