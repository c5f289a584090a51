#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace kestravine {

// Decodes a byte stream that arrives in pieces as UTF-8. Whatever is ill-formed becomes U+FFFD,
// one per maximal ill-formed subpart, exactly as if the stream had come in one piece: a
// character that a piece cuts short is held (at most 3 bytes) until the next piece completes it,
// and becomes one U+FFFD only if the stream ends first. Pipes are read in blocks that split
// characters wherever the writer's buffer happened to end.
//
// Threading: one instance belongs to one thread.
class Utf8Decoder {
 public:
  // Appends to `out` every character that `bytes` complete, as valid UTF-8.
  void decode(std::string& out, std::string_view bytes);
  // The end of the stream: a character still held becomes one U+FFFD.
  void finish(std::string& out);

 private:
  // Decodes `bytes` from `from` on; holds a character that their end cuts short.
  void decodeFrom(std::string& out, std::string_view bytes, std::size_t from);

  std::array<char, 4> held_{};
  std::size_t heldSize_ = 0;
};

}  // namespace kestravine
