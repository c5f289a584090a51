// A small program the tests run as a real child process, for what a shell line cannot do
// plainly: process trees with processes that ignore SIGTERM.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

[[noreturn]] void tree(char disposition, const std::string& shape);

// On SIGTERM, starts a process that ignores SIGTERM (and goes on itself).
void spawnOnTerm(int) {
  if (fork() == 0) tree('t', "");
}

// Prints "pid <self> <disposition>" and waits for good. The disposition: 't' ignores SIGTERM,
// 's' starts a SIGTERM-ignoring process when it gets one, 'n' ends on it. Each character of
// `shape` starts a child of that disposition; "/" separates what this process starts from what
// its first child starts: "tn/tn" starts a 't' (which starts "tn") and an 'n'.
[[noreturn]] void tree(char disposition, const std::string& shape) {
  signal(SIGTERM, disposition == 't' ? SIG_IGN : disposition == 's' ? spawnOnTerm : SIG_DFL);
  std::printf("pid %d %c\n", getpid(), disposition);
  std::fflush(stdout);
  const std::size_t slash = shape.find('/');
  const std::string here = shape.substr(0, slash);
  for (std::size_t i = 0; i < here.size(); ++i) {
    if (fork() == 0)
      tree(here[i], i == 0 && slash != std::string::npos ? shape.substr(slash + 1) : "");
  }
  for (;;) pause();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && argv[1] == std::string("tree") && argv[2][0] != 0 && argv[2][1] == 0)
    tree(argv[2][0], argc > 3 ? argv[3] : "");
  return 64;
}
