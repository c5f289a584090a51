#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace kestravine {

// Cuts a command's output, arriving in chunks, into lines. Each chunk is decoded as UTF-8 on its
// own (ill-formed bytes become U+FFFD). A line ends at every LF that does not directly follow a
// CR, also when the CR ended the previous chunk; CR LF pairs stay inside the line. A line longer
// than kMaxLineCharacters code points is cut there and the rest of it, up to its line end, is
// dropped as it streams: whatever a command prints, at most one cut line is held.
//
// Threading: one instance belongs to one thread (the output reader of one command).
class LineSplitter {
 public:
  // Far more than anyone reads in one line, and small enough that 400 kept lines stay bounded:
  // 6.5 MB of ASCII, 26 MB at most of four-byte characters, held by the model and the log each.
  static constexpr std::size_t kMaxLineCharacters = 16384;

  // Receives a finished line without its line end, and whether it was cut.
  using LineSink = std::function<void(std::string_view line, bool cut)>;

  // Appends a chunk and passes every line it completes to `sink`.
  void feed(std::string_view chunk, const LineSink& sink);
  // The end of the output: passes the unfinished line, if any, to `sink`.
  void finish(const LineSink& sink);

 private:
  // Adds text of the current line, as much as the cap leaves room for.
  void take(std::string_view text);
  void deliver(const LineSink& sink);

  std::string decoded_;  // the current chunk as valid UTF-8
  std::string line_;     // the current line, at most kMaxLineCharacters code points
  std::size_t characters_ = 0;
  bool cut_ = false;      // the current line reached the cap; the rest of it is dropped
  bool afterCr_ = false;  // the last byte seen was a CR, so an LF now does not end the line
};

}  // namespace kestravine
