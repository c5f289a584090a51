// Lines per second from a flooding command through Child into a main loop that counts them,
// beside `cat` moving the same bytes. Each measured case runs in a process of its own, so CPU
// time and peak memory belong to that case alone. wait4() reports the measured process's own
// figures; for the Child cases that is the launcher side only (the flooding command is its
// child, and its usage is not folded in because it is reaped by Child, not by wait4 here).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "env/executable_path.h"
#include "measure.h"
#include "platform/virtual_platform.h"
#include "process/child.h"

using namespace kestravine;

namespace {

constexpr long kLines = 1000000;

// The measured side: run the flood through a Child and count lines on the main loop.
int countLines(const std::string& style) {
  VirtualPlatform platform;
  installPlatform(platform);
  long lines = 0;
  bool exited = false;
  Child child;
  child.start(
      TEST_HELPER, {"flood", std::to_string(kLines), style}, std::nullopt, {},
      [&](std::string) { ++lines; }, [&](std::int32_t) { exited = true; });
  if (!platform.runUntil([&] { return exited && lines == kLines; }, std::chrono::minutes(5))) {
    std::fprintf(stderr, "only %ld lines arrived\n", lines);
    return 1;
  }
  return 0;
}

void report(const char* what, const bench::Figures& f, double lines) {
  std::printf("%-34s %8.3f s wall %8.3f s cpu %8.1f MB peak %12.0f lines/s\n", what, f.wallSeconds,
              f.cpuSeconds, static_cast<double>(f.peakRssKb) / 1024.0, lines / f.wallSeconds);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--count") return countLines(argv[2]);

  const std::string self = executablePath();
  const std::string scratch = "/tmp/kestravine-bench-" + std::to_string(getpid());
  std::printf("%ld lines per case\n", kLines);
  for (const std::string style : {"plain", "colour"}) {
    // Baseline: the same bytes, written to a file once, then moved by cat.
    bench::runMeasured({TEST_HELPER, "flood", std::to_string(kLines), style}, scratch);
    auto cat = bench::runMeasured({"/bin/cat", scratch}, "/dev/null");
    auto through = bench::runMeasured({self, "--count", style});
    report(("cat " + style + " bytes to /dev/null").c_str(), cat, kLines);
    report(("Child -> main loop, " + style).c_str(), through, kLines);
  }
  unlink(scratch.c_str());
  std::printf("targets: >= 2000000 lines/s plain, >= 1000000 lines/s colour, peak RSS < 30 MB\n");
  return 0;
}
