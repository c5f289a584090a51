#include "process/line_splitter.h"

#include "env/utf8.h"

namespace kestravine {

namespace {

bool startsCodePoint(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

}  // namespace

void LineSplitter::feed(std::string_view chunk, const LineSink& sink) {
  decoded_.clear();
  appendUtf8Replacing(decoded_, chunk);
  std::string_view rest = decoded_;
  while (!rest.empty()) {
    const std::size_t lf = rest.find('\n');
    if (lf == std::string_view::npos) {
      take(rest);
      return;
    }
    const bool crLf = lf > 0 ? rest[lf - 1] == '\r' : afterCr_;
    if (crLf) {  // one character, no line end: the LF stays in the line
      take(rest.substr(0, lf + 1));
    } else {
      take(rest.substr(0, lf));
      deliver(sink);
    }
    rest.remove_prefix(lf + 1);
  }
}

void LineSplitter::finish(const LineSink& sink) {
  if (!line_.empty()) deliver(sink);
  afterCr_ = false;
}

void LineSplitter::take(std::string_view text) {
  if (text.empty()) return;
  afterCr_ = text.back() == '\r';
  if (cut_) return;
  std::size_t end = 0;
  for (; end < text.size(); ++end) {
    if (startsCodePoint(text[end]) && characters_++ == kMaxLineCharacters) {
      cut_ = true;
      break;
    }
  }
  line_.append(text.substr(0, end));
}

void LineSplitter::deliver(const LineSink& sink) {
  sink(line_, cut_);
  line_.clear();
  // A cut line's buffer had grown to the cap; give that memory back.
  if (cut_) line_.shrink_to_fit();
  characters_ = 0;
  cut_ = false;
  afterCr_ = false;
}

}  // namespace kestravine
