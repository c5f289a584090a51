#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "process/process_identity.h"

namespace kestravine {

// The mark every process of one step carries: a variable in the environment of its command,
// which everything the command starts inherits. A server that detaches itself (a new session,
// its parent gone) leaves the command's process tree but keeps the mark, so a cancel still
// finds it; a process that sheds its environment (env -i, sudo) is found only while it is in the
// tree. Each step gets a mark of its own, and no other launcher's step shares it. Beside it, every
// process of the step carries the product home the step was for, so whoever finds the process
// later (who answers on the product's port?) can tell which home it belongs to.
//
// Threading: a value type; any thread.
class StepMark {
 public:
  static constexpr std::string_view kVariable = "KESTRAVINE_STEP";
  static constexpr std::string_view kHomeVariable = "KESTRAVINE_STEP_HOME";

  // A mark that no other step carries: this launcher's pid, a count and 64 random bits; for the
  // step of the product home `home` (canonical, see Ctx::canonicalHome()).
  static StepMark fresh(const std::string& home);
  StepMark(std::string token, const std::string& home);

  // "KESTRAVINE_STEP=<token>", the entry for a command's environment.
  const std::string& entry() const { return entry_; }
  // "KESTRAVINE_STEP_HOME=<home>", the other entry.
  const std::string& homeEntry() const { return homeEntry_; }
  // Whether an environment as /proc/<pid>/environ holds it carries the mark of a step, of any
  // launcher, for the product home `home`.
  static bool ofHome(std::string_view environment, const std::string& home);
  // Whether an environment as /proc/<pid>/environ holds it (entries ending in NUL) carries it.
  bool carriedBy(std::string_view environment) const;
  // Every live process that carries it, in no particular order. Reads the environment each
  // process was started with, which the user's own processes let the user read.
  std::vector<ProcessIdentity> carriers() const;

 private:
  std::string entry_;
  std::string homeEntry_;
};

}  // namespace kestravine
