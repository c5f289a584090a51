#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "process/step_mark.h"

namespace kestravine {

class Child;

// The wait for the product's own server to answer "http://127.0.0.1:<port>/home/": curl probes
// it, one at a time, with a pause of 2 s after each probe that was not answered. When nothing
// listened at the last probe, the pause watches the port's listeners every 50 ms instead and
// probes as soon as a socket listens. An answer below HTTP 400 is ready once the server is known
// not to be a stranger (another program or another user); a stranger's answer fails the wait.
//
// A service start may run beside the wait. While it runs, nothing counts towards giving up; when
// it ends, the wait begins afresh (with a probe at once, unless one is under way), so it never
// gives up earlier than 45 probes and their 2 s pauses after the start has ended, nor when a
// listener cut pauses short. It gives up at once when the start failed, nothing listens and
// nothing the start began still lives.
//
// Threading: main thread only, like the model that drives it. Probe exits and timers hold the
// wait weakly: a wait that is gone ends silently. Events come from probe exits and timers, and
// from serviceStartEnded().
class ReadinessWait : public std::enable_shared_from_this<ReadinessWait> {
  struct Token {
    explicit Token() = default;
  };

 public:
  // What the last probe that was not answered saw.
  struct Sight {
    enum class Kind {
      none,            // no probe has ended yet, or curl could not tell (it could not start)
      nothingListens,  // the connection was refused
      silent,          // connected, no answer within curl's 3 s
      hungUp,          // connected, closed without an answer
      status,          // answered with an HTTP error status
    };
    Kind kind = Kind::none;
    int httpStatus = 0;  // for `status`
  };

  struct Target {
    int port = 0;
    std::string home;           // the product home as set, for the log it names
    std::string canonicalHome;  // as Ctx::canonicalHome() gives it, to tell the product's server
  };

  struct Events {
    // A probe was not answered; sight() says what it saw.
    std::function<void()> onSight;
    // The product's own server answered (or one that cannot be told, which `details` names).
    std::function<void(std::vector<std::string> details)> onReady;
    // A stranger answered, or the wait gave up: the lines for the details, then the failure.
    std::function<void(std::vector<std::string> details, std::string failure)> onFail;
  };

  static constexpr int kProbes = 45;
  static constexpr Delay kPause{2000};
  static constexpr Delay kWatchTick{50};

  // Starts the first probe at once. `serviceStart`: the mark of a service start that runs beside
  // the wait until serviceStartEnded().
  static std::shared_ptr<ReadinessWait> start(Target target, Events events,
                                              std::optional<StepMark> serviceStart = {});
  ReadinessWait(Token, Target target, Events events);
  ~ReadinessWait();
  ReadinessWait(const ReadinessWait&) = delete;
  ReadinessWait& operator=(const ReadinessWait&) = delete;

  void serviceStartEnded(std::int32_t status);
  // No further probe; a running one is stopped. No event follows.
  void cancel();

  const Sight& sight() const { return sight_; }
  // The status line while the wait has nothing better to show: what the last probe saw. Empty
  // before any probe has ended.
  std::string sightText() const;

  // What curl's exit status and its "%{http_code}" line say it saw.
  static Sight sightOf(std::int32_t curlStatus, int httpCode);
  // "端口 5199 上还没有程序在听。" and the like; empty for Kind::none.
  static std::string describe(int port, const Sight& sight);

 private:
  void probe();
  void probed(std::int32_t status, int httpCode);
  void pause();
  void watch(int pause, Delay waited);
  void next();
  bool nothingWillAnswer() const;
  void giveUp();

  const Target target_;
  const Events events_;
  Sight sight_;
  std::shared_ptr<Child> probe_;
  // The service start beside, and its exit status once it has ended.
  std::optional<StepMark> startMark_;
  std::optional<std::int32_t> startStatus_;
  bool startRunning_ = false;
  // Probes and pause time that count towards giving up: none while a service start runs.
  int probes_ = 0;
  Delay paused_{0};
  // Names the current pause, so that a pause that ended early ignores its own late timer.
  int pause_ = 0;
  bool over_ = false;
};

}  // namespace kestravine
