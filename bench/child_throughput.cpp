// Lines per second from a flooding command through Child into a main loop that counts them,
// beside `cat` moving the same bytes. Each measured case runs in a process of its own, so CPU
// time and peak memory belong to that case alone. wait4() reports the measured process's own
// figures; for the Child cases that is the launcher side only (the flooding command is its
// child, and its usage is not folded in because it is reaped by Child, not by wait4 here).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "env/executable_path.h"
#include "measure.h"
#include "support/virtual_platform.h"
#include "process/child.h"

using namespace kestravine;

namespace {

constexpr long kLines = 1000000;

// One measured case: the command, and how many lines it must deliver.
struct Case {
  const char* name;
  std::vector<std::string> command;
  long lines;
};

std::vector<Case> cases() {
  const std::string helper = TEST_HELPER;
  return {
      {"plain", {helper, "flood", "1000000", "plain"}, kLines},
      {"colour", {helper, "flood", "1000000", "colour"}, kLines},
      {"plain-10m", {helper, "flood", "10000000", "plain"}, 10 * kLines},
      {"invalid-utf8-nul", {helper, "flood", "1000000", "invalid"}, kLines},
      {"50mb-no-line-end", {"/bin/bash", "-c", "head -c 50000000 /dev/zero | tr '\\0' x"}, 1},
  };
}

// The measured side: run one case through a Child and count lines on the main loop.
int countLines(const std::string& name) {
  VirtualPlatform platform;
  installPlatform(platform);
  for (const auto& c : cases()) {
    if (c.name != name) continue;
    long lines = 0;
    bool exited = false;
    Child child;
    child.start(
        c.command[0], {c.command.begin() + 1, c.command.end()}, std::nullopt, {},
        [&](std::string) { ++lines; }, [&](std::int32_t) { exited = true; });
    if (!platform.runUntil([&] { return exited && lines == c.lines; }, std::chrono::minutes(5))) {
      std::fprintf(stderr, "only %ld of %ld lines arrived\n", lines, c.lines);
      return 1;
    }
    return 0;
  }
  return 64;
}

void report(const char* what, const bench::Figures& f, double lines) {
  std::printf("%-40s %8.3f s wall %8.3f s cpu %8.1f MB peak %12.0f lines/s\n", what, f.wallSeconds,
              f.cpuSeconds, static_cast<double>(f.peakRssKb) / 1024.0, lines / f.wallSeconds);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--count") return countLines(argv[2]);

  const std::string self = executablePath();
  const std::string scratch = "/tmp/kestravine-bench-" + std::to_string(getpid());
  for (const auto& c : cases()) {
    // Baseline: the same bytes, written to a file once, then moved by cat.
    bench::runMeasured(c.command, scratch);
    auto cat = bench::runMeasured({"/bin/cat", scratch}, "/dev/null");
    auto through = bench::runMeasured({self, "--count", c.name});
    report(("cat, " + std::string(c.name)).c_str(), cat, static_cast<double>(c.lines));
    report(("Child -> main loop, " + std::string(c.name)).c_str(), through,
           static_cast<double>(c.lines));
  }
  unlink(scratch.c_str());
  std::printf("targets: >= 2000000 lines/s plain, >= 1000000 lines/s colour, peak RSS < 30 MB\n");
  return 0;
}
