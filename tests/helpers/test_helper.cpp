// A small program the tests run as a real child process, for what a shell line cannot do
// plainly: process trees with processes that ignore SIGTERM, and floods of output.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void writeAll(std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (n <= 0) std::exit(1);
    bytes.remove_prefix(static_cast<size_t>(n));
  }
}

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
  writeAll("pid " + std::to_string(getpid()) + " " + disposition + "\n");
  const std::size_t slash = shape.find('/');
  const std::string here = shape.substr(0, slash);
  for (std::size_t i = 0; i < here.size(); ++i) {
    if (fork() == 0)
      tree(here[i], i == 0 && slash != std::string::npos ? shape.substr(slash + 1) : "");
  }
  for (;;) pause();
}

// Lines "INFO step <i> done", plain, or broken by invalid UTF-8 and NUL bytes.
int flood(long count, bool invalid) {
  std::string chunk;
  for (long i = 0; i < count; ++i) {
    chunk += invalid ? "\xff\xfe step " + std::to_string(i) + std::string(" \0 done\n", 8)
                     : "INFO step " + std::to_string(i) + " done\n";
    if (chunk.size() > 60000) {
      writeAll(chunk);
      chunk.clear();
    }
  }
  writeAll(chunk);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  const std::string arg2 = argc > 2 ? argv[2] : "";
  const std::string arg3 = argc > 3 ? argv[3] : "";
  if (command == "tree" && arg2.size() == 1) tree(arg2[0], arg3);
  if (command == "flood") return flood(std::atol(arg2.c_str()), arg3 == "invalid");
  return 64;
}
