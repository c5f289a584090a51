// A small program the tests run as a real child process. Each subcommand does one thing a
// command run by the launcher might do: print exact bytes, exit in a given way, start processes
// that trap SIGTERM or outlive it, flood its output.
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

// C-style escapes: \n \r \t \\ \e and \xNN, so tests can name any byte.
std::string unescape(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out.push_back(text[i]);
      continue;
    }
    char c = text[++i];
    switch (c) {
      case 'n':
        out.push_back('\n');
        break;
      case 'r':
        out.push_back('\r');
        break;
      case 't':
        out.push_back('\t');
        break;
      case 'e':
        out.push_back('\x1b');
        break;
      case '0':
        out.push_back('\0');
        break;
      case 'x':
        out.push_back(
            static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16)));
        i += 2;
        break;
      default:
        out.push_back(c);
    }
  }
  return out;
}

void printLine(const std::string& line) {
  writeAll(line + "\n");
}

[[noreturn]] void waitForever() {
  for (;;) pause();
}

// Prints "pid <self>" and waits. Each spec character starts a child: 't' one that traps SIGTERM,
// 'n' a normal one; "/" separates what this process starts from what its first child starts.
// Example: "tn/nt" = this process starts a trapping child (which itself starts "nt") and a
// normal one.
[[noreturn]] void tree(bool trap, std::string spec) {
  if (trap) signal(SIGTERM, SIG_IGN);
  printLine("pid " + std::to_string(getpid()));
  std::string here = spec.substr(0, spec.find('/'));
  std::string below = spec.find('/') == std::string::npos ? "" : spec.substr(spec.find('/') + 1);
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
  if (command == "emit") {  // emit <bytes> [exit code]
    writeAll(unescape(arg(2)));
    return argc > 3 ? std::atoi(argv[3]) : 0;
  }
  if (command == "env") {  // env <name>: its value, or <unset>
    const char* value = std::getenv(argv[2]);
    printLine(value ? (std::string("[") + value + "]") : "<unset>");
    return 0;
  }
  if (command == "pwd") {
    char buffer[4096];
    printLine(getcwd(buffer, sizeof buffer) ? buffer : "?");
    return 0;
  }
  if (command == "raise") {  // raise <signal>: end by that signal
    signal(std::atoi(argv[2]), SIG_DFL);
    raise(std::atoi(argv[2]));
    return 0;
  }
  if (command == "tree") {  // tree <t|n> <spec>
    tree(arg(2) == "t", arg(3));
  }
  if (command == "background") return background(arg(2));
  if (command == "long") {  // long <bytes>: one line of that many 'x' and no line end
    std::string chunk(1 << 16, 'x');
    for (long left = std::atol(argv[2]); left > 0; left -= static_cast<long>(chunk.size())) {
      writeAll(
          std::string_view(chunk).substr(0, static_cast<size_t>(std::min<long>(left, 1 << 16))));
    }
    return 0;
  }
  if (command == "flood") return flood(std::atol(argv[2]), arg(3));
  return 64;
}
