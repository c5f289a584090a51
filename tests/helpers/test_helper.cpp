// A small program the tests run as a real child process, for what a shell line cannot do
// plainly: process trees that trap SIGTERM, a process that outlives its parent on the same
// output, and floods of output.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

void printLine(const std::string& line) {
  writeAll(line + "\n");
}

[[noreturn]] void waitForever() {
  for (;;) pause();
}

// Prints "pid <self>" and waits. Each character of `shape` starts a child: 't' one that traps
// SIGTERM, 'n' a normal one; "/" separates what this process starts from what its first child
// starts. Example: "tn/nt" = this process starts a trapping child (which itself starts "nt") and
// a normal one.
[[noreturn]] void tree(bool trap, std::string shape) {
  signal(SIGTERM, trap ? SIG_IGN : SIG_DFL);
  printLine("pid " + std::to_string(getpid()));
  std::string here = shape.substr(0, shape.find('/'));
  std::string below = shape.find('/') == std::string::npos ? "" : shape.substr(shape.find('/') + 1);
  for (size_t i = 0; i < here.size(); ++i) {
    if (fork() == 0) tree(here[i] == 't', i == 0 ? below : "");
  }
  waitForever();
}

// Prints a line, starts a process that inherits the output, and exits 0. The background process
// prints three lines once somebody writes to the FIFO at `gate` (the test does, after it has seen
// this command's exit report).
int background(const std::string& gate) {
  printLine("parent");
  if (fork() == 0) {
    int fd = open(gate.c_str(), O_RDONLY);
    char c;
    while (fd >= 0 && read(fd, &c, 1) > 0) {
    }
    for (int i = 1; i <= 3; ++i) printLine("late " + std::to_string(i));
    std::_Exit(0);
  }
  return 0;
}

// Lines "INFO step <i> done", plain, coloured, or broken by invalid UTF-8 and NUL bytes.
int flood(long count, const std::string& style) {
  std::string chunk;
  for (long i = 0; i < count; ++i) {
    if (style == "invalid") {
      chunk += "\xff\xfe step " + std::to_string(i) + std::string(" \0 done\n", 8);
    } else if (style == "colour") {
      chunk += "\x1b[32mINFO\x1b[0m step " + std::to_string(i) + " \x1b[1mdone\x1b[0m\n";
    } else {
      chunk += "INFO step " + std::to_string(i) + " done\n";
    }
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
  if (argc < 2) return 64;
  std::string_view command = argv[1];
  auto arg = [&](int i) { return i < argc ? std::string(argv[i]) : std::string(); };
  if (command == "tree") {  // tree <t|n> <shape>
    tree(arg(2) == "t", arg(3));
  }
  if (command == "background") return background(arg(2));
  if (command == "flood") return flood(std::atol(argv[2]), arg(3));
  return 64;
}
