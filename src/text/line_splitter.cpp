#include "text/line_splitter.h"

#include "text/plain.h"

namespace kestravine {

namespace {

// Ends a stretch that was cut at the cap.
constexpr std::string_view kCutMark = "\u2026";

bool startsCodePoint(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

}  // namespace

void LineSplitter::feed(std::string_view chunk, const LineSink& sink) {
  decoded_.clear();
  decoder_.decode(decoded_, chunk);
  std::string_view rest = decoded_;
  while (!rest.empty()) {
    const std::size_t lf = rest.find('\n');
    std::string_view line = rest.substr(0, lf);
    for (std::size_t cr = line.find('\r'); cr != std::string_view::npos; cr = line.find('\r')) {
      take(line.substr(0, cr));
      endStretch();
      line.remove_prefix(cr + 1);
    }
    take(line);
    if (lf == std::string_view::npos) return;
    endLine(sink);
    rest.remove_prefix(lf + 1);
  }
}

void LineSplitter::finish(const LineSink& sink) {
  decoded_.clear();
  decoder_.finish(decoded_);
  take(decoded_);
  endLine(sink);
}

void LineSplitter::take(std::string_view text) {
  if (cut_) return;
  std::size_t end = 0;
  for (; end < text.size(); ++end) {
    if (startsCodePoint(text[end]) && characters_++ == kMaxLineCharacters) {
      cut_ = true;
      break;
    }
  }
  stretch_.append(text.substr(0, end));
}

std::string LineSplitter::shown() const {
  std::string text = plain(stretch_);
  if (cut_) text += kCutMark;
  return text;
}

void LineSplitter::endStretch() {
  if (std::string text = shown(); !text.empty()) previous_ = std::move(text);
  clearStretch();
}

void LineSplitter::endLine(const LineSink& sink) {
  std::string text = shown();
  if (text.empty()) text = std::move(previous_);
  if (!text.empty()) sink(text);
  previous_.clear();
  previous_.shrink_to_fit();
  clearStretch();
}

void LineSplitter::clearStretch() {
  stretch_.clear();
  // A cut stretch's buffer had grown to the cap; give that memory back.
  if (cut_) stretch_.shrink_to_fit();
  characters_ = 0;
  cut_ = false;
}

}  // namespace kestravine
