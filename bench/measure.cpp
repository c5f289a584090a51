#include "measure.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

extern char** environ;

namespace kestravine::bench {

Figures runMeasured(const std::vector<std::string>& argv, const std::string& stdoutPath,
                    const std::string& stdinPath) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!stdoutPath.empty()) {
    posix_spawn_file_actions_addopen(&actions, 1, stdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
  }
  if (!stdinPath.empty()) {
    posix_spawn_file_actions_addopen(&actions, 0, stdinPath.c_str(), O_RDONLY, 0);
  }
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = -1;
  if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) != 0) {
    std::fprintf(stderr, "cannot start %s\n", args[0]);
    std::exit(1);
  }
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  Figures f;
  f.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  f.cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                 static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  f.peakRssKb = usage.ru_maxrss;
  return f;
}

}  // namespace kestravine::bench
