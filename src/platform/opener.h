#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

namespace kestravine {

// The desktop's opener for an address: xdg-open from PATH, run directly with the address as one
// argument, in a session of its own with the launcher's standard output and error. Its exit
// status says whether the desktop could open the page; one still running after kBound holds the
// browser in the foreground, which opened it.
//
// Threading: the thread that started it (the main thread); polled, never waited for.
class Opener {
 public:
  static constexpr std::chrono::seconds kBound{2};

  // None when no xdg-open is on PATH (`found` false) or it could not be started (`found` true).
  static std::optional<Opener> start(const std::string& url, bool& found);

  // Whether the page opened, once the opener has ended or run past kBound; none before.
  std::optional<bool> result();
  // After result(): reaps the opener once it has ended. True when there is nothing left to reap.
  bool reap();

 private:
  explicit Opener(pid_t pid) : pid_(pid), asked_(std::chrono::steady_clock::now()) {}

  pid_t pid_;
  std::chrono::steady_clock::time_point asked_;
  bool reaped_ = false;
};

}  // namespace kestravine
