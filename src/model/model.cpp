#include "model/model.h"

#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "env/ctx.h"
#include "model/launch_failure.h"
#include "model/machine_words.h"
#include "model/port_report.h"
#include "model/readiness_wait.h"
#include "model/version.h"
#include "platform/platform.h"
#include "process/child.h"
#include "process/port_owner.h"

namespace kestravine {

namespace {

constexpr const char* kStatusInstalled = "正在打开Varnholt。";
constexpr const char* kStatusInstalling = "在装，第一次要几分钟。";
constexpr const char* kInstallFailedBefore = "没能装完（退出码 ";
constexpr const char* kStatusOpened = "打开了。";
constexpr const char* kCancelled = "停下了。什么都没改坏，再点一次可以重来。";

constexpr const char* kBash = "/bin/bash";
constexpr std::int64_t kBasePort = 5199;
constexpr Delay kQuitDelay{800};
constexpr Delay kAutostartDelay{300};

const std::vector<std::string>& serviceStartArgs() {
  static const std::vector<std::string> args{"-lc", "npm run -s zorvel:up"};
  return args;
}

int applicationPort() {
  return static_cast<int>(kBasePort + Ctx::portOffset());
}

std::string applicationAddress() {
  return "http://127.0.0.1:" + std::to_string(applicationPort()) + "/home/";
}

PortOwner portOwner() {
  return PortOwner::of(applicationPort(), Ctx::canonicalHome());
}

// Names compare as Unicode text: by code point after canonical normalisation. UTF-8 byte order
// is code point order, so the normalised UTF-8 strings compare directly.
std::string normalised(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  if (U_FAILURE(status)) return name;
  icu::UnicodeString text = nfc->normalize(icu::UnicodeString::fromUTF8(name), status);
  std::string out;
  return U_SUCCESS(status) ? text.toUTF8String(out) : name;
}

// The tarball that sorts first among the directory's entries; empty if there is none or the
// directory cannot be read.
std::string firstTarball(const std::string& dir) {
  std::error_code error;
  std::filesystem::directory_iterator it(dir, error);
  std::string best;
  std::string bestKey;
  for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
    std::string name = it->path().filename().string();
    std::string key = normalised(name);
    if (!key.starts_with("kestravine-") || !key.ends_with(".tar.gz")) continue;
    if (best.empty() || key < bestKey) {
      best = std::move(name);
      bestKey = std::move(key);
    }
  }
  return best;
}

}  // namespace

std::shared_ptr<Model> Model::create() {
  return std::make_shared<Model>(Token{});
}

Model::Model(Token) {}

Model::~Model() = default;

int Model::addListener(Listener listener) {
  listeners_.emplace_back(nextListenerId_, std::move(listener));
  return nextListenerId_++;
}

void Model::removeListener(int id) {
  std::erase_if(listeners_, [id](const auto& entry) { return entry.first == id; });
}

void Model::notify(Field field) {
  // A listener may add or remove listeners (its own included) while it is told: go over the
  // ones there are now, by id, skipping any removed meanwhile.
  std::vector<int> ids;
  ids.reserve(listeners_.size());
  for (const auto& entry : listeners_) ids.push_back(entry.first);
  for (int id : ids) {
    const auto it = std::find_if(listeners_.begin(), listeners_.end(),
                                 [id](const auto& entry) { return entry.first == id; });
    if (it == listeners_.end()) continue;
    const Listener listener = it->second;  // a copy: removing itself must not destroy it mid-call
    listener(field);
  }
}

void Model::append(std::string line) {
  lines_.push_back(line);
  ++linesAppended_;
  // At most one entry over the limit after a single append: O(1) from the front of the deque.
  while (lines_.size() > kMaxLines) lines_.pop_front();
  notify(Field::lines);
  assign(Field::status, status_, std::move(line));
}

void Model::fail(std::string text) {
  assign(Field::failure, failure_, std::move(text));
  assign(Field::phase, phase_, Phase::failed);
  assign(Field::canCancel, canCancel_, false);
}

std::function<void(std::string)> Model::appender() {
  return [weak = weak_from_this()](std::string line) {
    auto self = weak.lock();
    if (self && !self->closed_ && !self->opened_) self->append(std::move(line));
  };
}

void Model::startRun(launch_failure::Step step, const std::vector<std::string>& args,
                     std::optional<std::string> cwd, std::map<std::string, std::string> extraEnv,
                     std::function<void(Model&, std::int32_t)> onExit) {
  // Replacing the child releases the previous one without stopping it.
  child_ = std::make_shared<Child>();
  auto onRunExit = [weak = weak_from_this(), run = std::weak_ptr<Child>(child_), step,
                    onExit = std::move(onExit)](std::int32_t status) {
    auto self = weak.lock();
    if (!self || !self->owns(run)) return;
    const int launchError = run.lock()->launchError();
    if (!self->finishRun()) return;
    // Not started at all: no status to speak of, and no product that could answer.
    if (launchError == 0) return onExit(*self, status);
    if (self->wait_) self->wait_->cancel();
    self->wait_.reset();
    self->fail(launch_failure::text(step, launchError));
  };
  child_->start(kBash, args, std::move(cwd), std::move(extraEnv), appender(), onRunExit);
}

bool Model::owns(const std::weak_ptr<Child>& run) const {
  // A run that was cancelled (or replaced) no longer holds the child slot.
  return !run.expired() && run.lock() == child_;
}

bool Model::finishRun() {
  child_.reset();
  if (closed_) {
    finishClosing();
    return false;
  }
  return true;
}

bool Model::isInstalled() {
  return Ctx::fileExists(Ctx::kestravineHome() + "/app");
}

void Model::check() {
  if (closed_) return;  // the window has gone: nothing more starts
  if (!isInstalled()) {
    assign(Field::headline, headline_, machineTexts().headlineNotInstalled);
    assign(Field::phase, phase_, Phase::ready);
    return;
  }
  if (!offerUpdate()) startInstalled();
}

bool Model::offerUpdate() {
  const auto installed = installedVersion(Ctx::kestravineHome());
  const auto bundled = bundledVersion(firstTarball(Ctx::resourceDir()));
  if (!installed || !bundled || *bundled <= *installed) return false;
  const WordedTexts& texts = machineTexts();
  assign(Field::headline, headline_, texts.headlineUpdate);
  assign(Field::status, status_,
         texts.installedIs + installed->text() + texts.bundledIs + bundled->text() + "。");
  assign(Field::offer, offer_, Offer::update);
  assign(Field::phase, phase_, Phase::ready);
  return true;
}

void Model::startInstalled() {
  if (closed_) return;
  assign(Field::headline, headline_, machineTexts().headlineInstalled);
  // A program that is not the product holds the port: the services could not bind it, and the
  // probe would take that program's answers for the product's.
  if (refuse(portOwner())) return;
  assign(Field::phase, phase_, Phase::working);
  assign(Field::status, status_, std::string(kStatusInstalled));
  assign(Field::canCancel, canCancel_, true);
  startServices();
}

void Model::startServices() {
  std::map<std::string, std::string> extraEnv{
      {"ZORVEL_PORT_OFFSET", std::to_string(Ctx::portOffset())}};
  // A login shell reads the profile files, and Debian's /etc/profile sets PATH afresh, dropping
  // the product's own node. bash reads BASH_ENV after them: that script puts it first again,
  // then hands the user's own BASH_ENV back (and runs it).
  const std::string serviceEnv = Ctx::resourceDir() + "/" + kServiceEnvScript;
  if (Ctx::fileExists(serviceEnv)) {
    extraEnv.emplace("BASH_ENV", serviceEnv);
    extraEnv.emplace("KESTRAVINE_NODE_BIN", Ctx::kestravineHome() + "/node/bin");
    if (const char* own = std::getenv("BASH_ENV"))
      extraEnv.emplace("KESTRAVINE_USER_BASH_ENV", own);
  }
  // Whether the services came up is the wait's to decide, and it begins beside the start: a
  // product that already runs answers at once. The exit status only lets the wait give up early
  // when nothing can answer any more.
  startRun(launch_failure::Step::serviceStart, serviceStartArgs(), Ctx::kestravineHome() + "/app",
           std::move(extraEnv), [](Model& self, std::int32_t status) {
             // A copy: the wait may end the flow from inside, which lets go of it.
             if (const auto wait = self.wait_) wait->serviceStartEnded(status);
             self.showSight();
           });
  waitForReadiness(child_->mark());
}

void Model::install() {
  if (closed_) return;
  const std::string dir = Ctx::resourceDir();
  const std::string tarball = firstTarball(dir);
  const std::string script = dir + "/install.sh";
  const bool scriptThere = Ctx::fileExists(script);
  if (tarball.empty() || !scriptThere) {
    // Where the launcher looked and what it did not find there, for whoever reads the details.
    append("找过的文件夹：" + dir);
    if (tarball.empty()) append("缺少：kestravine-<版本>.tar.gz");
    if (!scriptThere) append("缺少：install.sh");
    assign(Field::failure, failure_, machineTexts().missingFiles);
    assign(Field::phase, phase_, Phase::failed);
    return;
  }
  assign(Field::phase, phase_, Phase::working);
  assign(Field::canCancel, canCancel_, true);
  assign(Field::status, status_, std::string(kStatusInstalling));
  assign(Field::lines, lines_, {});

  std::map<std::string, std::string> extraEnv{
      {"KESTRAVINE_NO_OPEN", "1"}, {"ZORVEL_PORT_OFFSET", std::to_string(Ctx::portOffset())}};
  for (const char* name : {"KESTRAVINE_HOME", "KESTRAVINE_SKIP_ATTEST"}) {
    if (auto it = Ctx::env().find(name); it != Ctx::env().end()) extraEnv.emplace(name, it->second);
  }
  startRun(launch_failure::Step::install, {script, "--from", dir + "/" + tarball}, std::nullopt,
           std::move(extraEnv), [](Model& self, std::int32_t status) {
             if (status == 0) {
               self.waitForReadiness(std::nullopt);
             } else {
               self.fail(kInstallFailedBefore + std::to_string(status) +
                         machineTexts().installFailedAfter);
             }
           });
}

void Model::waitForReadiness(std::optional<StepMark> serviceStart) {
  auto weak = weak_from_this();
  ReadinessWait::Events events;
  events.onSight = [weak] {
    if (auto self = weak.lock()) self->showSight();
  };
  events.onReady = [weak](std::vector<std::string> details) {
    auto self = weak.lock();
    if (!self || self->closed_) return;
    self->wait_.reset();
    for (std::string& line : details) self->append(std::move(line));
    self->opened_ = true;
    self->assign(Field::status, self->status_, std::string(kStatusOpened));
    self->assign(Field::canCancel, self->canCancel_, false);
    self->openAndQuit();
  };
  events.onFail = [weak](std::vector<std::string> details, std::string failure) {
    auto self = weak.lock();
    if (!self || self->closed_) return;
    self->wait_.reset();
    for (std::string& line : details) self->append(std::move(line));
    self->fail(std::move(failure));
  };
  wait_ = ReadinessWait::start({applicationPort(), Ctx::kestravineHome(), Ctx::canonicalHome()},
                               std::move(events), std::move(serviceStart));
}

void Model::showSight() {
  // While a command runs, its own lines say more than the probe.
  if (closed_ || child_ || !wait_) return;
  if (std::string text = wait_->sightText(); !text.empty())
    assign(Field::status, status_, std::move(text));
}

bool Model::refuse(const PortOwner& owner) {
  auto text = port_report::refusal(applicationPort(), owner);
  if (text) fail(std::move(*text));
  return text.has_value();
}

void Model::openAndQuit() {
  // The launcher ends 0.8 s after the browser was asked, once the opener has said that it
  // worked; an opener that failed leaves the window with the address instead.
  auto weak = weak_from_this();
  if (Ctx::switchedOn("KESTRAVINE_NO_OPEN")) {
    opener_ = Opener::opened;
  } else {
    opener_ = Opener::asked;
    platform().openUrl(applicationAddress(), [weak](bool opened) {
      auto self = weak.lock();
      if (!self || self->closed_) return;
      if (!opened) {
        // Quitting now would leave the user with nothing: the window stays and gives the
        // address, on a line of its own so that it is never broken.
        self->opener_ = Opener::failed;
        return self->fail("Varnholt已经起来了，但没能打开浏览器。请在浏览器里打开：\n" +
                          applicationAddress());
      }
      self->opener_ = Opener::opened;
      if (self->quitDue_) self->leave();
    });
  }
  platform().postAfter(kQuitDelay, [weak] {
    auto self = weak.lock();
    if (!self) return Child::afterPendingKills([] { platform().quit(); });
    self->quitDue_ = true;
    if (self->opener_ == Opener::opened) self->leave();
  });
}

void Model::leave() {
  // As after a close of the window: a service start still running is let finish (a product
  // that already ran answers before its start command is done), and a cancelled tree's SIGKILL
  // still due is carried out first.
  close([] { platform().quit(); });
}

void Model::autostart() {
  if (!Ctx::switchedOn("KESTRAVINE_LAUNCHER_AUTOSTART")) return;
  if (isInstalled() && offer_ != Offer::update) return;
  // Only while the install is still on offer: a click in the meantime has started it already,
  // and two install scripts must never run side by side.
  platform().postAfter(kAutostartDelay, [weak = weak_from_this()] {
    auto self = weak.lock();
    if (self && self->phase_ == Phase::ready) self->install();
  });
}

void Model::cancel() {
  if (child_) child_->cancel();
  child_.reset();
  // The wait stops, and with it nothing the product's services left running.
  if (wait_) wait_->cancel();
  wait_.reset();
  assign(Field::canCancel, canCancel_, false);
  assign(Field::failure, failure_, std::string(kCancelled));
  assign(Field::phase, phase_, Phase::failed);
}

void Model::close(std::function<void()> done) {
  if (closed_) return;
  closed_ = true;
  whenClosed_ = std::move(done);
  if (wait_) wait_->cancel();
  wait_.reset();
  notify(Field::closed);
  if (!child_) finishClosing();
}

void Model::finishClosing() {
  if (whenClosed_) Child::afterPendingKills(std::move(whenClosed_));
  whenClosed_ = nullptr;
}

void Model::retry() {
  assign(Field::failure, failure_, std::string());
  assign(Field::lines, lines_, {});
  // A failed or cancelled update left the installed version as it was: offered again.
  if (offerUpdate()) return;
  if (offer_ != Offer::install) assign(Field::offer, offer_, Offer::install);
  assign(Field::phase, phase_, Phase::ready);
  assign(Field::headline, headline_, machineTexts().headlineNotInstalled);
}

}  // namespace kestravine
