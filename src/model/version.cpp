#include "model/version.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "system/system_calls.h"

namespace kestravine {

namespace {

constexpr std::size_t kPackageJsonLimit = 1 << 20;

bool allDigits(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool identifier(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-';
  });
}

// The dot-separated fields of `text`; none if one of them fails `valid`.
template <typename Valid>
std::optional<std::vector<std::string>> fields(std::string_view text, Valid valid) {
  std::vector<std::string> out;
  for (;;) {
    const std::size_t dot = text.find('.');
    const std::string_view field = text.substr(0, dot);
    if (!valid(field)) return std::nullopt;
    out.emplace_back(field);
    if (dot == std::string_view::npos) return out;
    text.remove_prefix(dot + 1);
  }
}

// Digits compared as the numbers they write, however long.
std::strong_ordering compareNumbers(std::string_view a, std::string_view b) {
  a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
  b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
  if (a.size() != b.size()) return a.size() <=> b.size();
  return a.compare(b) <=> 0;
}

std::strong_ordering compareFields(const std::string& a, const std::string& b) {
  const bool aNumber = allDigits(a);
  const bool bNumber = allDigits(b);
  if (aNumber && bNumber) return compareNumbers(a, b);
  if (aNumber != bNumber)
    return aNumber ? std::strong_ordering::less : std::strong_ordering::greater;
  return a.compare(b) <=> 0;
}

}  // namespace

std::optional<Version> Version::parse(std::string_view text) {
  Version version;
  version.text_ = text;
  const std::size_t plus = text.find('+');
  if (plus != std::string_view::npos && !fields(text.substr(plus + 1), identifier))
    return std::nullopt;
  const std::string_view ordered = text.substr(0, plus);
  const std::size_t dash = ordered.find('-');
  auto numbers = fields(ordered.substr(0, dash), allDigits);
  if (!numbers) return std::nullopt;
  if (dash != std::string_view::npos) {
    auto preRelease = fields(ordered.substr(dash + 1), identifier);
    if (!preRelease) return std::nullopt;
    version.preRelease_ = std::move(*preRelease);
  }
  version.numbers_ = std::move(*numbers);
  return version;
}

std::strong_ordering Version::operator<=>(const Version& other) const {
  constexpr std::string_view kZero = "0";
  for (std::size_t i = 0; i < std::max(numbers_.size(), other.numbers_.size()); ++i) {
    const std::string_view a = i < numbers_.size() ? std::string_view(numbers_[i]) : kZero;
    const std::string_view b =
        i < other.numbers_.size() ? std::string_view(other.numbers_[i]) : kZero;
    if (const auto order = compareNumbers(a, b); order != 0) return order;
  }
  // A release comes after its pre-releases.
  if (preRelease_.empty() != other.preRelease_.empty())
    return preRelease_.empty() ? std::strong_ordering::greater : std::strong_ordering::less;
  for (std::size_t i = 0; i < std::min(preRelease_.size(), other.preRelease_.size()); ++i) {
    if (const auto order = compareFields(preRelease_[i], other.preRelease_[i]); order != 0)
      return order;
  }
  return preRelease_.size() <=> other.preRelease_.size();
}

std::optional<Version> installedVersion(const std::string& home) {
  const std::string path = home + "/app/package.json";
  const std::optional<std::string> text =
      system_calls::readSmallFile(path.c_str(), kPackageJsonLimit);
  if (!text) return std::nullopt;
  const nlohmann::json package = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (!package.is_object()) return std::nullopt;  // a failed parse is "discarded", no object
  const auto version = package.find("version");
  if (version == package.end() || !version->is_string()) return std::nullopt;
  return Version::parse(version->get_ref<const std::string&>());
}

std::optional<Version> bundledVersion(std::string_view tarballName) {
  constexpr std::string_view prefix = "kestravine-";
  constexpr std::string_view suffix = ".tar.gz";
  if (tarballName.size() < prefix.size() + suffix.size() || !tarballName.starts_with(prefix) ||
      !tarballName.ends_with(suffix))
    return std::nullopt;
  return Version::parse(
      tarballName.substr(prefix.size(), tarballName.size() - prefix.size() - suffix.size()));
}

}  // namespace kestravine
