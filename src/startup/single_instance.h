#pragma once

#include <QString>
#include <functional>
#include <string>

#include "system/unique_fd.h"

namespace kestravine {

// One launcher per product home, as the desktop's second activation of a running application
// only brings its window forward.
//
// The first launcher for a home takes a lock (flock) on a file in a folder only the user can
// write ($XDG_RUNTIME_DIR/kestravine-launcher when the runtime directory is the user's alone,
// else /run/user/<uid>/kestravine-launcher, else ~/.cache/kestravine-launcher) and listens on a
// local socket beside it; every step after the folder is opened works through its descriptor.
// The kernel drops the lock when the process ends, however it ends, so a crashed or killed
// launcher never blocks the next; the lock is held until the launcher ends, also while it waits
// windowless for a command after its window was closed, and a launcher that ends normally
// removes both files. Homes are told apart by canonical path. A later launcher for the same home
// finds the lock taken, hands the activation token its desktop gave it (XDG_ACTIVATION_TOKEN) to
// the first, and learns whether that one brought its window forward or is finishing without one.
//
// The wire, one exchange per later launch over the socket:
//
//   later launcher -> first   <XDG_ACTIVATION_TOKEN, or nothing>\t<its desktop>\n   4 KiB
//   first -> later launcher   shown\n       the window came forward
//                             finishing\n   the window is closed; a command still runs
//                             elsewhere <its desktop>\n   the later launcher's desktop is
//                                  another one, where this window cannot come forward
//   (a desktop: "WAYLAND_DISPLAY=wayland-0", "DISPLAY=:0", or the QT_QPA_PLATFORM asked for)
//   (no answer within 3 s, or anything else)   the later launcher says the first does not
//                                              answer, and ends with 1
//
// Threading: GUI thread only. The descriptors are close-on-exec and never reach a child.
class SingleInstance {
 public:
  enum class Answer { first, shown, finishing, elsewhere, unknown };

  // Takes the guard for `home` (canonical, see Ctx::canonicalHome()), or asks the launcher
  // holding it to come forward. Runs before the application exists, and needs no display.
  // Without a place of the user's own, says so in one line on stderr and runs unguarded, as
  // the first.
  explicit SingleInstance(const std::string& home);
  ~SingleInstance();
  SingleInstance(const SingleInstance&) = delete;
  SingleInstance& operator=(const SingleInstance&) = delete;

  Answer answer() const { return answer_; }

  // The first launcher, once the application exists: `onLaunch` runs for each later launch of
  // the same home with its activation token, and returns true if this launcher is finishing
  // (its window closed) rather than showing its window.
  void serve(std::function<bool(const QString& token)> onLaunch);

  // A later launcher: says what became of this launch (on stderr when the first is finishing or
  // on another desktop, on stdout when there is a terminal to read it otherwise). Returns the
  // exit status.
  int report() const;
  // Answer::elsewhere: the sentence that says the first launcher is open on another desktop,
  // naming it.
  std::string elsewhereText() const;
  // The desktop this launcher's window goes to, as the wire names it.
  static std::string thisDesktop();
  // Where this launcher runs instead, for a front end without a window ("TERMINAL=/dev/pts/3").
  // Before the guard is taken.
  static void setDesktop(std::string desktop);

  // The first launcher without an event loop (the terminal): the socket to watch, -1 if none,
  // and the answer to one launch waiting on it, its request read for at most 0.5 s.
  int listenerFd() const;
  void answerOne(const std::function<bool(const QString&)>& onLaunch);

  // The first launcher, ending: removes the socket and the lock file. The destructor does the
  // same; this is for an end that skips destructors.
  void leave();

 private:
  static std::string replyTo(const std::string& line,
                             const std::function<bool(const QString&)>& onLaunch);
  static std::string& desktopOverride();

  Answer answer_ = Answer::first;
  std::string elsewhere_;  // Answer::elsewhere: the first launcher's desktop
  UniqueFd folder_;
  std::string lockName_;
  std::string socketName_;
  UniqueFd lock_;
  UniqueFd listener_;
};

}  // namespace kestravine
