#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/launch_failure.h"
#include "process/step_mark.h"

namespace kestravine {

class Child;
class ReadinessWait;
struct PortOwner;

// The launcher's observable state and the install flow that drives it: the pre-flight check and
// service start, the install run, the readiness probe with open-and-quit, cancel and retry.
//
// Who moves the phase where (every other change keeps the phase):
//
//   from        by                                        to
//   checking    check(): not installed                    ready (offer: install)
//   checking    check(): a newer version in the package   ready (offer: update)
//   checking    check() / startInstalled(): installed     working (service start), or failed
//   ready                                                 when a stranger holds the port
//   ready       install(): files there / missing          working (install) / failed
//   working     install exits 0                           working (the wait for readiness)
//   working     install exits with another status, or     failed
//               a run could not be started at all
//   working     the wait: the product answers / a         the browser opens and the launcher
//               stranger answers or it gives up           quits (once the opener said it
//                                                         opened) / failed
//   working     cancel()                                  failed
//   failed      retry()                                   ready (offer: update if the package
//                                                         is newer than the installed, else
//                                                         install)
//
// A run is a service start or an install: it holds the child slot from its start until its exit
// (finishRun()) or a cancel. The wait for readiness (ReadinessWait) begins beside a service start
// and after an install that succeeded. Cancel is offered from a run's start until the wait ends
// or the install fails. While a run goes on its lines are the status; once it has ended, what
// the wait's last probe saw. Once the window has closed, nothing further is shown or started.
//
// Threading: main thread only, no lock. Every operation is called there, every child callback
// and timer it schedules runs there, and listeners are notified there. Callbacks and timers
// hold the model weakly, so a model that is gone ends its flow silently.
class Model : public std::enable_shared_from_this<Model> {
  struct Token {
    explicit Token() = default;
  };

 public:
  enum class Phase { checking, ready, working, failed };
  // What the ready phase offers: the install, or an update of the installed product to the
  // newer one in the package (which also offers to start the installed one instead).
  enum class Offer { install, update };
  // `closed`: the flow is over for the window (see close()); told once.
  enum class Field { phase, headline, status, lines, failure, canCancel, offer, closed };
  // Called after every assignment of a published field, also when the value did not change.
  // Cheap by design: it names the field and copies nothing.
  using Listener = std::function<void(Field)>;

  static constexpr std::size_t kMaxLines = 400;

  // Models are always shared: the flow's callbacks need weak references to them.
  static std::shared_ptr<Model> create();
  explicit Model(Token);
  ~Model();
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;

  Phase phase() const { return phase_; }
  const std::string& headline() const { return headline_; }
  const std::string& status() const { return status_; }
  // The last output lines, oldest first, never more than kMaxLines.
  const std::deque<std::string>& lines() const { return lines_; }
  // How many lines were ever appended. It numbers them: lines()[i] is line number
  // linesAppended() - lines().size() + i, and a number always stands for the same text, so a
  // view can keep what it worked out for a line while the line moves up the list.
  std::uint64_t linesAppended() const { return linesAppended_; }
  const std::string& failure() const { return failure_; }
  bool canCancel() const { return canCancel_; }
  Offer offer() const { return offer_; }
  bool closed() const { return closed_; }
  // Whether the product answered and its page was opened (or given to the user).
  bool opened() const { return opened_; }
  // Whether a service start or an install is under way (it may go on after the page opened).
  bool runs() const { return child_ != nullptr; }

  // Returns an id for removeListener().
  int addListener(Listener listener);
  void removeListener(int id);

  // Decides from the product home whether the product is installed: if not, offers the install;
  // if the package holds a newer version than the installed one, offers the update; else starts
  // the installed product's services and then the readiness probe.
  void check();
  // Runs the bundled install script on the bundled tarball, then the readiness probe. Also the
  // update: the script replaces the installed version.
  void install();
  // The installed version, instead of the update on offer: its services, then the probe.
  void startInstalled();
  // The automatic install that KESTRAVINE_LAUNCHER_AUTOSTART=1 asks for: install() 0.3 s from
  // now, unless the product is installed and no update is offered, and only if the offer still
  // stands then. Called once, right after check().
  void autostart();
  // Whether the product is installed: anything exists at <product home>/app.
  static bool isInstalled();
  // Stops the running service start or install with its whole process tree, and the wait for
  // readiness (what a service start that has ended left running stays).
  void cancel();
  // Back from a failure to the offer: the update where the package's version is newer than the
  // installed one, else the install.
  void retry();

  // The window goes away: when the user closes it, or 0.8 s after the page opened. Nothing
  // further is shown or started (later calls of check() and install() do nothing, and the wait
  // ends), and nothing is stopped: the running service start or install keeps its output read
  // (and dropped) so that it runs to its end, and its exit then shows nothing. Listeners hear
  // Field::closed, so that a window still shown goes. `done` runs on the main queue once that
  // command has exited (at once if none runs) and every pending SIGKILL follow-up of a cancel
  // has been carried out. Calls after the first do nothing.
  void close(std::function<void()> done);
  // The script that a service start's login shell reads through BASH_ENV, in the resource
  // directory beside install.sh.
  static constexpr const char* kServiceEnvScript = "service-env.sh";

 private:
  void append(std::string line);
  void fail(std::string text);
  void startServices();
  // Offers the update when the package's version is newer than the installed one; returns
  // whether it did. An unreadable or malformed version offers nothing.
  bool offerUpdate();
  // The wait for readiness, beside the service start with `serviceStart` or after an install.
  void waitForReadiness(std::optional<StepMark> serviceStart);
  // What the wait's last probe saw becomes the status, once no run speaks.
  void showSight();
  void openAndQuit();
  // The flow is done: the window goes, and the launcher ends once nothing runs any more.
  void leave();
  // When a program that is not the product holds the port, fails with a text that names it and
  // returns true.
  bool refuse(const PortOwner& owner);
  void finishClosing();
  // Whether `run` is still the model's current run rather than one cancelled or replaced.
  bool owns(const std::weak_ptr<Child>& run) const;
  // A run has exited: the child slot empties and cancel is no longer offered. False once the
  // window has closed, when nothing may follow.
  bool finishRun();

  // Starts `child_` anew for a service start or an install; the exit handler runs only for
  // the run it belongs to, so a cancelled run's late exit changes nothing, and only for a run
  // that was started: one that could not be fails with the reason.
  void startRun(launch_failure::Step step, const std::vector<std::string>& args,
                std::optional<std::string> cwd, std::map<std::string, std::string> extraEnv,
                std::function<void(Model&, std::int32_t)> onExit);
  std::function<void(std::string)> appender();

  template <typename T>
  void assign(Field field, T& member, T value) {
    member = std::move(value);
    notify(field);
  }
  void notify(Field field);

  Phase phase_ = Phase::checking;
  std::string headline_;
  std::string status_;
  std::deque<std::string> lines_;
  std::uint64_t linesAppended_ = 0;
  std::string failure_;
  bool canCancel_ = false;
  Offer offer_ = Offer::install;
  std::shared_ptr<Child> child_;
  std::shared_ptr<ReadinessWait> wait_;
  // The page has been opened: a service start still running shows nothing more.
  bool opened_ = false;
  // What the desktop's opener said of the page, and whether the 0.8 s after asking it are over.
  enum class Opener { none, asked, opened, failed };
  Opener opener_ = Opener::none;
  bool quitDue_ = false;
  bool closed_ = false;
  std::function<void()> whenClosed_;

  std::vector<std::pair<int, Listener>> listeners_;
  int nextListenerId_ = 0;
};

}  // namespace kestravine
