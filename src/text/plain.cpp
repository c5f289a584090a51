#include "text/plain.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <cstring>
#include <memory>

namespace kestravine {

namespace {

constexpr char kEscape = '\x1b';

bool isBlank(UChar32 c) {
  return c == '\t' || u_charType(c) == U_SPACE_SEPARATOR;
}

bool isLetter(UChar32 c) {
  if (c < 0x80) return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
  return u_hasBinaryProperty(c, UCHAR_ALPHABETIC) != 0;
}

std::string_view trimBlanks(std::string_view s) {
  const auto* b = reinterpret_cast<const std::uint8_t*>(s.data());
  auto begin = std::int32_t{0};
  auto end = static_cast<std::int32_t>(s.size());
  while (begin < end) {
    std::int32_t next = begin;
    UChar32 c;
    U8_NEXT(b, next, end, c);
    if (c < 0 || !isBlank(c)) break;
    begin = next;
  }
  while (end > begin) {
    std::int32_t previous = end;
    UChar32 c;
    U8_PREV(b, begin, previous, c);
    if (c < 0 || !isBlank(c)) break;
    end = previous;
  }
  return s.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

// Grapheme-cluster boundaries of one line. Between two ASCII characters there is always a
// boundary except inside CR LF, and a control character is always a cluster of its own; only
// where a non-ASCII character follows is ICU's break iterator consulted, so coloured ASCII
// output never pays for segmentation.
class Clusters {
 public:
  explicit Clusters(std::string_view text) : text_(text) {}
  ~Clusters() {
    if (textSet_) utext_close(&utext_);
  }

  // End of the cluster that starts at `pos` (a cluster boundary).
  std::int32_t endOf(std::int32_t pos) {
    const auto n = static_cast<std::int32_t>(text_.size());
    const auto c = static_cast<std::uint8_t>(text_[static_cast<std::size_t>(pos)]);
    if (c < 0x80) {
      if (pos + 1 == n) return n;
      const auto next = static_cast<std::uint8_t>(text_[static_cast<std::size_t>(pos) + 1]);
      if (c == '\r' && next == '\n') return pos + 2;
      if (next < 0x80 || c < 0x20 || c == 0x7f) return pos + 1;
    }
    if (icu::BreakIterator* it = iterator()) return it->following(pos);
    // Without segmentation data, code points stand for characters.
    U8_FWD_1(text_.data(), pos, n);
    return pos;
  }

 private:
  icu::BreakIterator* iterator() {
    // One iterator per thread: creating one is costly, and they are not thread-safe.
    thread_local const std::unique_ptr<icu::BreakIterator> shared = [] {
      UErrorCode status = U_ZERO_ERROR;
      std::unique_ptr<icu::BreakIterator> created(
          icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
      return U_SUCCESS(status) ? std::move(created) : nullptr;
    }();
    if (!shared) return nullptr;
    if (!textSet_) {
      UErrorCode status = U_ZERO_ERROR;
      utext_openUTF8(&utext_, text_.data(), static_cast<std::int64_t>(text_.size()), &status);
      shared->setText(&utext_, status);
      textSet_ = true;
    }
    // The analyzer takes the thread_local for a local destroyed on return; it lives as long as
    // the thread.
    return shared.get();  // NOLINT(clang-analyzer-cplusplus.NewDelete)
  }

  std::string_view text_;
  UText utext_ = UTEXT_INITIALIZER;
  bool textSet_ = false;
};

UChar32 codePointAt(std::string_view s, std::int32_t pos) {
  UChar32 c;
  U8_NEXT(reinterpret_cast<const std::uint8_t*>(s.data()), pos, static_cast<std::int32_t>(s.size()),
          c);
  return c;
}

std::string removeEscapes(std::string_view s) {
  const auto n = static_cast<std::int32_t>(s.size());
  std::string out;
  out.reserve(s.size());
  Clusters clusters(s);
  std::int32_t i = 0;
  while (i < n) {
    const void* found = std::memchr(s.data() + i, kEscape, static_cast<std::size_t>(n - i));
    // ESC is a control, so no cluster spans it: copying bytes up to it copies whole clusters.
    const auto esc =
        found ? static_cast<std::int32_t>(static_cast<const char*>(found) - s.data()) : n;
    out.append(s.data() + i, static_cast<std::size_t>(esc - i));
    if (esc + 1 >= n) break;  // no escape left, or a lone one at the very end
    const std::int32_t afterEscape = clusters.endOf(esc + 1);
    if (afterEscape != esc + 2 || s[static_cast<std::size_t>(esc) + 1] != '[') {
      i = afterEscape;  // ESC and exactly one character after it
      continue;
    }
    // ESC "[": everything up to and including the first letter goes.
    std::int32_t m = afterEscape;
    while (m < n && !isLetter(codePointAt(s, m))) m = clusters.endOf(m);
    i = m < n ? clusters.endOf(m) : n;
  }
  return out;
}

}  // namespace

std::string plain(std::string_view line) {
  if (std::memchr(line.data(), kEscape, line.size()) == nullptr) {
    return std::string(trimBlanks(line));
  }
  return std::string(trimBlanks(removeEscapes(line)));
}

}  // namespace kestravine
