#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "text/utf8_decoder.h"

namespace kestravine {

// Turns a command's output, arriving in chunks, into the lines a terminal would leave on screen,
// cleaned for display. The bytes are decoded as one UTF-8 stream (ill-formed bytes become
// U+FFFD, whatever the chunks). A line ends at LF; a CR directly before it is no part of it. A
// bare CR starts the line over, as a progress display rewriting itself does: of the stretches
// the CRs separate, the line shows the last that is not empty once cleaned (`plain`). Lines
// that come out empty are dropped. A stretch longer than kMaxLineCharacters code points is cut
// there, ends in "…", and the rest of it is dropped as it streams: whatever a command prints, at
// most two stretches are held.
//
// Threading: one instance belongs to one thread (the output reader of one command).
class LineSplitter {
 public:
  // Far more than anyone reads in one line, and small enough that 400 kept lines stay bounded:
  // 6.5 MB of ASCII, 26 MB at most of four-byte characters, held by the model and the log each.
  static constexpr std::size_t kMaxLineCharacters = 16384;

  // Receives a finished line: cleaned and not empty.
  using LineSink = std::function<void(std::string_view line)>;

  // Appends a chunk and passes every line it completes to `sink`.
  void feed(std::string_view chunk, const LineSink& sink);
  // The end of the output: passes the unfinished line, if any, to `sink`.
  void finish(const LineSink& sink);

 private:
  // Adds text of the current stretch, as much as the cap leaves room for.
  void take(std::string_view text);
  // A CR: what follows overwrites the current stretch, unless it comes out empty.
  void endStretch();
  void endLine(const LineSink& sink);
  void clearStretch();
  // The current stretch as it shows: cleaned, and marked if it was cut.
  std::string shown() const;

  Utf8Decoder decoder_;
  std::string decoded_;         // the current chunk as valid UTF-8
  std::string stretch_;         // text since the last CR or line end, at most the cap
  std::string previous_;        // the last stretch of this line that showed something, as it shows
  std::size_t characters_ = 0;  // code points in stretch_
  bool cut_ = false;            // the stretch reached the cap; the rest of it is dropped
};

}  // namespace kestravine
