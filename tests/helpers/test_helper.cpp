// A small program the tests run as a real child process, for what a shell line cannot do
// plainly: process trees with processes that ignore SIGTERM or detach themselves.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

[[noreturn]] void tree(char disposition, const std::string& shape);

// Becomes a process that ignores SIGTERM and has shed its environment, as `env -i` would, all
// but the tests' own mark: nothing but its parents tells whose it is.
[[noreturn]] void shed() {
  const std::string mark = std::string("KESTRAVINE_TEST_MARK=") + getenv("KESTRAVINE_TEST_MARK");
  char* const argv[] = {const_cast<char*>("test_helper"), const_cast<char*>("tree"),
                        const_cast<char*>("t"), nullptr};
  char* const envp[] = {const_cast<char*>(mark.c_str()), nullptr};
  execve("/proc/self/exe", argv, envp);
  _exit(71);
}

// On SIGTERM, starts a process that ignores SIGTERM (and goes on itself).
void spawnOnTerm(int) {
  if (fork() == 0) tree('t', "");
}
void spawnShedOnTerm(int) {
  if (fork() == 0) shed();
}

// Listens on a loopback port the system picks, as a server would, and prints "port <n>".
void listenOnSomePort() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(fd, 1) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    _exit(70);
  std::printf("port %d\n", ntohs(address.sin_port));
}

// Starts a child of `disposition`, which runs `shape`. An upper-case disposition detaches as a
// server does: its process starts the real one in a session of its own and ends at once, so
// the server is nobody's descendant; the server listens on a port.
void start(char disposition, const std::string& shape) {
  const pid_t pid = fork();
  if (pid != 0) {
    if (std::isupper(disposition)) waitpid(pid, nullptr, 0);
    return;
  }
  if (disposition == 'x') shed();
  if (std::islower(disposition)) tree(disposition, shape);
  if (fork() != 0) _exit(0);
  setsid();
  listenOnSomePort();
  tree(static_cast<char>(std::tolower(disposition)), shape);
}

// Prints "pid <self> <disposition>" and waits for good. The disposition: 't' ignores SIGTERM,
// 's' starts a SIGTERM-ignoring process when it gets one, 'e' starts one that has shed its
// environment, 'n' ends on it; 'x' (only in a shape) is a 't' that has shed its environment,
// reporting itself as 't'. Each character of
// `shape` starts a child of that disposition; "/" separates what this process starts from what
// its first child starts: "tn/tn" starts a 't' (which starts "tn") and an 'n'.
[[noreturn]] void tree(char disposition, const std::string& shape) {
  const auto onTerm = disposition == 't'   ? SIG_IGN
                      : disposition == 's' ? spawnOnTerm
                      : disposition == 'e' ? spawnShedOnTerm
                                           : SIG_DFL;
  signal(SIGTERM, onTerm);
  std::printf("pid %d %c\n", getpid(), disposition);
  std::fflush(stdout);
  const std::size_t slash = shape.find('/');
  const std::string here = shape.substr(0, slash);
  for (std::size_t i = 0; i < here.size(); ++i)
    start(here[i], i == 0 && slash != std::string::npos ? shape.substr(slash + 1) : "");
  for (;;) pause();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && argv[1] == std::string("tree") && argv[2][0] != 0 && argv[2][1] == 0)
    tree(argv[2][0], argc > 3 ? argv[3] : "");
  return 64;
}
