#pragma once

#include <string>
#include <vector>

namespace kestravine::bench {

// Wall time, CPU time and peak resident memory of one measured run.
struct Figures {
  double wallSeconds = 0;
  double cpuSeconds = 0;
  long peakRssKb = 0;
};

// Runs `argv` to its end with stdout and stdin redirected as given ("" leaves them alone) and
// returns its figures, taken from wait4(). Exits the benchmark if it cannot start.
Figures runMeasured(const std::vector<std::string>& argv, const std::string& stdoutPath = "",
                    const std::string& stdinPath = "");

}  // namespace kestravine::bench
