#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace kestravine {

// Parses a whole string as a decimal integer of type T: at most one leading "+" or "-", then one
// or more ASCII digits, nothing else, and the value must fit T. Stateless; any thread.
template <typename T>
std::optional<T> parseDecimal(std::string_view text) {
  // from_chars takes "-" but not "+"; a "+" is only accepted when a digit follows it.
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  T value{};
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, value, 10);
  if (ec != std::errc() || ptr != end || text.empty()) return std::nullopt;
  return value;
}

}  // namespace kestravine
