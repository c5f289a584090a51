#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestravine {

// A product version as a package names it: dotted numbers ("0.10.2"), optionally followed by a
// pre-release part ("-rc.1") and build data ("+build.7"). Ordered by the usual rules: numbers
// numerically, missing numbers as 0 ("1.0" is "1.0.0"); a pre-release comes before its release
// ("1.0.0-rc.1" < "1.0.0"); pre-release parts compare field by field, numeric fields
// numerically and before words, words by their bytes, and the shorter list first when one is
// the start of the other. Build data takes no part in the order.
//
// Threading: a value; any thread.
class Version {
 public:
  // None unless `text` is such a version in full; numbers of any length are fine.
  static std::optional<Version> parse(std::string_view text);

  // As parsed, for the texts that name it.
  const std::string& text() const { return text_; }

  std::strong_ordering operator<=>(const Version& other) const;
  bool operator==(const Version& other) const { return (*this <=> other) == 0; }

 private:
  std::string text_;
  std::vector<std::string> numbers_;
  std::vector<std::string> preRelease_;
};

// The installed product's version: the "version" member of <home>/app/package.json. None when
// the file is missing, not a regular file, larger than 1 MiB or not JSON, or the member is no
// version. Reads the file: main thread or any, it holds no state.
std::optional<Version> installedVersion(const std::string& home);

// The version in a tarball's name, "kestravine-<version>.tar.gz"; none for any other name.
std::optional<Version> bundledVersion(std::string_view tarballName);

}  // namespace kestravine
