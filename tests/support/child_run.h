#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "process/child.h"

namespace kestravine::testing {

// What a Child delivered, in order. Shared with the callbacks, so late deliveries after a test
// ended land here harmlessly.
struct Delivered {
  std::vector<std::string> lines;
  std::vector<std::int32_t> exits;
  std::vector<std::string> events;  // "line:<text>" and "exit:<status>" in arrival order
};

// Starts `program` through a fresh Child and records its callbacks.
struct ChildRun {
  ChildRun(ChildRun&&) = default;
  ChildRun(const std::string& program, const std::vector<std::string>& args,
           std::optional<std::string> cwd = std::nullopt,
           std::map<std::string, std::string> extraEnv = {});

  // Runs the main queue until the exit report and at least `lines` lines have arrived.
  bool waitFor(std::size_t lines = 0);

  std::unique_ptr<Child> child = std::make_unique<Child>();
  std::shared_ptr<Delivered> got = std::make_shared<Delivered>();
};

std::string helper();

// True when no process with this pid is alive (gone, or a zombie awaiting its reaper).
bool isGone(pid_t pid);

}  // namespace kestravine::testing
