#include "process/line_splitter.h"

#include <cstring>

#include "env/utf8.h"

namespace kestravine {

void LineSplitter::feed(std::string_view chunk, const LineSink& sink) {
  appendUtf8Replacing(buffer_, chunk);
  std::size_t lineStart = 0;
  std::size_t pos = scanned_;
  const char* data = buffer_.data();
  while (pos < buffer_.size()) {
    const void* hit = std::memchr(data + pos, '\n', buffer_.size() - pos);
    if (hit == nullptr) break;
    const auto lf = static_cast<std::size_t>(static_cast<const char*>(hit) - data);
    pos = lf + 1;
    if (lf > lineStart && data[lf - 1] == '\r') continue;  // CR LF: one character, no line end
    sink(std::string_view(data + lineStart, lf - lineStart));
    lineStart = lf + 1;
  }
  // Dropping the finished lines once per chunk keeps the work linear however long a line is.
  buffer_.erase(0, lineStart);
  scanned_ = buffer_.size();
}

void LineSplitter::finish(const LineSink& sink) {
  if (!buffer_.empty()) sink(buffer_);
  buffer_.clear();
  scanned_ = 0;
}

}  // namespace kestravine
