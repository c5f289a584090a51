#include "terminal/run_in_terminal.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "model/model.h"
#include "startup/descriptor_limit.h"
#include "startup/single_instance.h"
#include "terminal/poll_platform.h"
#include "terminal/terminal_session.h"
#include "terminal/terminal_view.h"

namespace kestravine {

namespace {

bool set(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

}  // namespace

int runInTerminal(SingleInstance& instance, bool interactive) {
  const char* term = std::getenv("TERM");
  TerminalView::Style style;
  style.plainLines = !interactive || term == nullptr || std::string_view(term) == "dumb";
  style.colour = !style.plainLines && !set("NO_COLOR");
  style.keys = interactive;

  TerminalView* shown = nullptr;
  // Never destroyed, like the window's platform: an output reader or exit watcher still running
  // when the launcher ends (a stopped probe's) may yet post to it.
  auto& loop = *new PollPlatform([&shown](const std::string& url) {
    if (shown != nullptr) shown->showAddress(url);
  });
  if (const int error = loop.error()) {
    std::fputs(descriptor_limit::shortage(descriptor_limit::current(), error).c_str(), stderr);
    return 1;
  }
  installPlatform(loop);
  auto model = Model::create();
  TerminalView view(model, style, [&] { model->close([&loop] { loop.quit(); }); });
  shown = &view;
  TerminalSession session(
      loop, interactive, [&view](int signal) { view.signalled(signal); },
      [&view] { view.resized(); }, [&view](char key) { view.key(key); });
  // Later launches for this home are told where this one runs.
  if (const int listener = instance.listenerFd(); listener >= 0)
    loop.watch(listener, [&instance] { instance.answerOne([](const QString&) { return false; }); });
  model->check();
  model->autostart();
  loop.run();
  view.finish();
  switch (view.outcome()) {
    case TerminalView::Outcome::answered:
      return 0;
    case TerminalView::Outcome::failed:
      return 1;
    case TerminalView::Outcome::cancelled:
      return 2;
    case TerminalView::Outcome::none:
      break;
  }
  return interactive ? 0 : 2;
}

}  // namespace kestravine
