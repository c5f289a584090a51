#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "model/model.h"

namespace kestravine {

// The launcher's flow laid out for a terminal, from the same Model and the same texts as the
// window: the headline once, what each arrangement offers with the key for it, the running
// command's lines as they come, the status on one line at the bottom (rewritten in place and cut
// with "…" to the terminal's width in display columns), a failure and its details whole. Colours
// only where `colour` says (a terminal that has them, NO_COLOR unset); with `plainLines`
// (TERM=dumb, or no terminal at all) every change is a line of its own and nothing is rewritten.
//
// Keys: Return installs, updates or retries; s starts the installed version beside the update
// offer; Escape or Ctrl-C cancels a running step; q, or Ctrl-C where nothing runs, leaves.
//
// Threading: the main thread, like the model.
class TerminalView {
 public:
  struct Style {
    bool colour = false;
    bool plainLines = false;
    bool keys = true;  // keys can be pressed: the offers name them
  };
  enum class Outcome { none, answered, failed, cancelled };

  // `leave` runs once the view decides to end (a key, or the flow's close).
  TerminalView(std::shared_ptr<Model> model, Style style, std::function<void()> leave);
  ~TerminalView();
  TerminalView(const TerminalView&) = delete;
  TerminalView& operator=(const TerminalView&) = delete;

  void key(char key);
  // The terminal's width changed: the status line is drawn again to it.
  void resized();
  // A termination signal, or the terminal gone: as the window's close. Where no key can be
  // pressed, an interrupt (SIGINT) cancels the running step instead.
  void signalled(int signal);
  // The launcher ends: the status line is left on a line of its own.
  void finish();
  // The address given to the user where no browser could be asked.
  void showAddress(const std::string& url);
  Outcome outcome() const;

 private:
  void changed(Model::Field field);
  void arrange();
  void printNewLines();
  void line(const std::string& text, const char* sgr = nullptr);
  void clearStatus();
  void drawStatus();
  void write(const std::string& bytes);
  void leave();

  std::shared_ptr<Model> model_;
  const Style style_;
  std::function<void()> leave_;
  int listener_ = -1;
  std::uint64_t printed_ = 0;  // lines of the model already printed, by number
  std::string headlineShown_;
  std::string statusShown_;  // on the bottom line now; empty when none is drawn
  std::string lastPlainStatus_;
  bool cancelled_ = false;
  bool leaving_ = false;
  bool flushPending_ = false;
};

}  // namespace kestravine
