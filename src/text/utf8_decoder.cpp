#include "text/utf8_decoder.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>

namespace kestravine {

namespace {

constexpr std::string_view kReplacement = "\uFFFD";

void append(std::string& out, UChar32 c) {
  char encoded[U8_MAX_LENGTH];
  std::int32_t n = 0;
  U8_APPEND_UNSAFE(encoded, n, c);
  out.append(encoded, static_cast<std::size_t>(n));
}

// How many bytes the character that `lead` starts takes; 0 for a byte that starts none.
std::size_t sequenceLength(std::uint8_t lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

// Decodes the sequence at `i`, moving `i` past it (past its maximal ill-formed subpart if it is
// one). True if it is the well-formed start of a character that `length` cuts short.
bool next(const std::uint8_t* s, std::int32_t& i, std::int32_t length, UChar32& c) {
  const std::int32_t start = i;
  U8_NEXT_OR_FFFD(s, i, length, c);
  const auto taken = static_cast<std::size_t>(i - start);
  return i == length && c == 0xFFFD && taken < sequenceLength(s[start]);
}

}  // namespace

void Utf8Decoder::decode(std::string& out, std::string_view bytes) {
  std::size_t from = 0;
  if (heldSize_ > 0) {
    // Complete the held character with as many bytes as it lacks, then go on after them.
    const auto lead = static_cast<std::uint8_t>(held_[0]);
    const std::size_t added = std::min(bytes.size(), sequenceLength(lead) - heldSize_);
    std::array<char, 4> joined = held_;
    std::copy_n(bytes.begin(), added, joined.begin() + static_cast<std::ptrdiff_t>(heldSize_));
    const auto length = static_cast<std::int32_t>(heldSize_ + added);
    const auto* s = reinterpret_cast<const std::uint8_t*>(joined.data());
    std::int32_t i = 0;
    UChar32 c = 0;
    if (next(s, i, length, c)) {  // still short: the piece was shorter than what it lacked
      held_ = joined;
      heldSize_ = static_cast<std::size_t>(length);
      return;
    }
    // The held bytes are a well-formed start, so the sequence ends at or after them.
    from = static_cast<std::size_t>(i) - heldSize_;
    heldSize_ = 0;
    append(out, c);
  }
  decodeFrom(out, bytes, from);
}

void Utf8Decoder::decodeFrom(std::string& out, std::string_view bytes, std::size_t from) {
  const auto* s = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const auto length = static_cast<std::int32_t>(bytes.size());
  auto i = static_cast<std::int32_t>(from);
  while (i < length) {
    // Most output is ASCII: copy runs of it in one go.
    const std::int32_t run = i;
    while (i < length && s[i] < 0x80) ++i;
    out.append(bytes.data() + run, static_cast<std::size_t>(i - run));
    if (i == length) return;
    const std::int32_t start = i;
    UChar32 c = 0;
    if (next(s, i, length, c)) {
      heldSize_ = static_cast<std::size_t>(length - start);
      std::copy_n(bytes.begin() + start, heldSize_, held_.begin());
      return;
    }
    append(out, c);
  }
}

void Utf8Decoder::finish(std::string& out) {
  if (heldSize_ > 0) out += kReplacement;
  heldSize_ = 0;
}

}  // namespace kestravine
