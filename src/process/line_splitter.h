#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kestravine {

// Cuts a command's output, arriving in chunks, into lines. Each chunk is decoded as UTF-8 on its
// own (ill-formed bytes become U+FFFD). A line ends at every LF that does not directly follow a
// CR, also when the CR ended the previous chunk; CR LF pairs stay inside the line. Only the
// unfinished tail is kept between chunks.
//
// Threading: one instance belongs to one thread (the output reader of one command).
class LineSplitter {
 public:
  using LineSink = std::function<void(std::string_view)>;

  // Appends a chunk and passes every line it completes, without its line end, to `sink`.
  void feed(std::string_view chunk, const LineSink& sink);
  // The end of the output: passes the unfinished tail, if any, to `sink`.
  void finish(const LineSink& sink);

  std::size_t bufferedBytes() const { return buffer_.size(); }

 private:
  std::string buffer_;
  std::size_t scanned_ = 0;  // bytes of buffer_ already searched for line ends
};

}  // namespace kestravine
