#include "model/readiness_wait.h"

#include "model/port_report.h"
#include "process/child.h"
#include "process/port_owner.h"
#include "system/tcp_listeners.h"

namespace kestravine {

namespace {

constexpr const char* kCurl = "/usr/bin/curl";
constexpr const char* kMonitorLog = "/app/.zorvel/logs/monitor.log";
constexpr const char* kServicesFailedBefore = "服务没能起来。日志在 ";
// Lines of the services' log that a failure to come up shows in its details.
constexpr std::size_t kLogTailLines = 10;
// curl's exit statuses for what it saw of the server.
constexpr std::int32_t kCurlCouldNotConnect = 7;
constexpr std::int32_t kCurlTimedOut = 28;
constexpr std::int32_t kCurlHttpError = 22;

std::string address(int port) {
  return "http://127.0.0.1:" + std::to_string(port) + "/home/";
}

bool someoneListens(int port) {
  return !tcp_listeners::answeringLoopback(tcp_listeners::read(), port).empty();
}

// The "%{http_code}" line curl writes last: three digits, "000" where nothing answered.
std::optional<int> httpCodeOf(const std::string& line) {
  if (line.size() != 3) return std::nullopt;
  for (char c : line)
    if (c < '0' || c > '9') return std::nullopt;
  return std::stoi(line);
}

}  // namespace

std::shared_ptr<ReadinessWait> ReadinessWait::start(Target target, Events events,
                                                    std::optional<StepMark> serviceStart) {
  auto wait = std::make_shared<ReadinessWait>(Token{}, std::move(target), std::move(events));
  wait->startMark_ = std::move(serviceStart);
  wait->startRunning_ = wait->startMark_.has_value();
  wait->probe();
  return wait;
}

ReadinessWait::ReadinessWait(Token, Target target, Events events)
    : target_(std::move(target)), events_(std::move(events)) {}

ReadinessWait::~ReadinessWait() = default;

void ReadinessWait::serviceStartEnded(std::int32_t status) {
  startStatus_ = status;
  startRunning_ = false;
  // The count starts now, as if the wait began here: what ran beside the start says nothing of
  // how long the product takes. A probe under way counts once it ends; none counted before.
  paused_ = Delay(0);
  if (over_ || probe_) return;
  ++pause_;  // the pause under way ends here
  if (nothingWillAnswer()) return giveUp();
  probe();
}

void ReadinessWait::cancel() {
  over_ = true;
  if (probe_) probe_->stop();
  probe_.reset();
}

std::string ReadinessWait::sightText() const {
  const std::string seen = describe(target_.port, sight_);
  return seen.empty() ? seen : "还在等Varnholt：" + seen;
}

ReadinessWait::Sight ReadinessWait::sightOf(std::int32_t curlStatus, int httpCode) {
  if (httpCode > 0) return {Sight::Kind::status, httpCode};
  switch (curlStatus) {
    case kCurlCouldNotConnect:
      return {Sight::Kind::nothingListens, 0};
    case kCurlTimedOut:
      return {Sight::Kind::silent, 0};
    case 127:  // curl could not be started: it saw nothing
      return {};
    default:
      return {Sight::Kind::hungUp, 0};
  }
}

std::string ReadinessWait::describe(int port, const Sight& sight) {
  const std::string onPort = "端口 " + std::to_string(port);
  switch (sight.kind) {
    case Sight::Kind::none:
      break;
    case Sight::Kind::nothingListens:
      return onPort + " 上还没有程序在听。";
    case Sight::Kind::silent:
      return onPort + " 上有程序在听，但 3 秒内没有回答。";
    case Sight::Kind::hungUp:
      return onPort + " 上有程序在听，但没回答就断开了。";
    case Sight::Kind::status:
      return onPort + " 回答了 HTTP " + std::to_string(sight.httpStatus) + "，还不能用。";
  }
  return {};
}

void ReadinessWait::probe() {
  probe_ = std::make_shared<Child>();
  // The exit and the output come on their own ways: an HTTP error's status line may follow the
  // exit, and is the one thing worth waiting for.
  struct Outcome {
    std::optional<std::int32_t> status;
    std::optional<int> httpCode;
    bool told = false;
  };
  auto outcome = std::make_shared<Outcome>();
  auto tell = [weak = weak_from_this(), outcome] {
    if (outcome->told || !outcome->status) return;
    if (*outcome->status == kCurlHttpError && !outcome->httpCode) return;
    outcome->told = true;
    if (auto self = weak.lock()) self->probed(*outcome->status, outcome->httpCode.value_or(0));
  };
  // "-q" (only read as the first argument) skips the user's curlrc, and "--noproxy" every proxy
  // variable: a company proxy must not stand between the launcher and 127.0.0.1. "-w" tells an
  // HTTP error status apart.
  probe_->start(
      kCurl,
      {"-q", "-fsS", "-o", "/dev/null", "-w", "%{http_code}\\n", "--max-time", "3", "--noproxy",
       "*", address(target_.port)},
      std::nullopt, {},
      [outcome, tell](std::string line) {
        if (auto code = httpCodeOf(line)) outcome->httpCode = *code;
        tell();
      },
      [outcome, tell](std::int32_t status) {
        outcome->status = status;
        tell();
      });
}

void ReadinessWait::probed(std::int32_t status, int httpCode) {
  if (over_) return;
  probe_.reset();
  if (!startRunning_) ++probes_;
  if (status == 0) {
    // Only the product's own server is opened, never another program's page on its port.
    const PortOwner owner = PortOwner::of(target_.port, target_.canonicalHome);
    over_ = true;
    if (auto refusal = port_report::refusal(target_.port, owner))
      return events_.onFail({}, std::move(*refusal));
    std::vector<std::string> details;
    // Answered where it cannot be tied to a process: the details say what was seen.
    if (owner.kind != PortOwner::Kind::product)
      details.push_back(port_report::seen(target_.port, owner, true));
    return events_.onReady(std::move(details));
  }
  sight_ = sightOf(status, httpCode);
  if (events_.onSight) events_.onSight();
  if (over_) return;  // cancelled from the event
  if (nothingWillAnswer()) return giveUp();
  pause();
}

void ReadinessWait::pause() {
  const int pause = ++pause_;
  if (sight_.kind == Sight::Kind::nothingListens) return watch(pause, Delay(0));
  platform().postAfter(kPause, [weak = weak_from_this(), pause] {
    auto self = weak.lock();
    if (!self || self->over_ || self->pause_ != pause) return;
    self->paused_ += kPause;
    self->next();
  });
}

void ReadinessWait::watch(int pause, Delay waited) {
  platform().postAfter(kWatchTick, [weak = weak_from_this(), pause, waited] {
    auto self = weak.lock();
    if (!self || self->over_ || self->pause_ != pause) return;
    self->paused_ += kWatchTick;
    const Delay now = waited + kWatchTick;
    if (now >= kPause || someoneListens(self->target_.port)) return self->next();
    self->watch(pause, now);
  });
}

void ReadinessWait::next() {
  if (probes_ >= kProbes && paused_ >= kProbes * kPause) return giveUp();
  probe();
}

bool ReadinessWait::nothingWillAnswer() const {
  return startMark_ && startStatus_.value_or(0) != 0 &&
         PortOwner::of(target_.port, target_.canonicalHome).kind == PortOwner::Kind::nobody &&
         startMark_->carriers().empty();
}

void ReadinessWait::giveUp() {
  over_ = true;
  std::vector<std::string> details;
  if (startStatus_.value_or(0) != 0) details.push_back(port_report::startStatus(*startStatus_));
  details.push_back(
      port_report::seen(target_.port, PortOwner::of(target_.port, target_.canonicalHome), false));
  for (std::string& line : port_report::tail(target_.home + kMonitorLog, kLogTailLines))
    details.push_back(std::move(line));
  if (const std::string seen = describe(target_.port, sight_); !seen.empty())
    details.push_back("最后一次探测：" + seen);
  events_.onFail(std::move(details), kServicesFailedBefore + target_.home + kMonitorLog + "。");
}

}  // namespace kestravine
