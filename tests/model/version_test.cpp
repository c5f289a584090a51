#include "model/version.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace kestravine {
namespace {

// Each pair in order, the first older; `same` spells one version twice.
TEST(Version, OrdersAsDottedVersionsWithPreReleases) {
  const std::tuple<const char*, const char*, bool> table[] = {
      {"0.9.2", "0.10.0", false},  // numbers, not text
      {"1.9.9", "2.0.0", false},
      {"1.0.0-rc.1", "1.0.0", false},                // a pre-release before its release
      {"1.0.0-alpha", "1.0.0-alpha.1", false},       // a shorter list first
      {"1.0.0-alpha.1", "1.0.0-alpha.beta", false},  // numbers before words
      {"1.0.0-beta.2", "1.0.0-beta.11", false},
      {"1.0.0-Beta", "1.0.0-alpha", false},  // words by their bytes
      {"1.0.0-rc.1", "1.0.1-alpha", false},
      {"1.0", "1.0.1", false},
      {"99999999999999999999.0", "100000000000000000000.0", false},  // beyond 64 bits
      {"1.0", "1.0.0", true},
      {"1", "1.0.0", true},
      {"01.2.3", "1.2.3", true},
      {"1.2.3+build.7", "1.2.3", true},
      {"1.0.0-rc.01", "1.0.0-rc.1", true},
  };
  for (const auto& [a, b, same] : table) {
    const auto older = Version::parse(a);
    const auto newer = Version::parse(b);
    ASSERT_TRUE(older && newer) << a << " " << b;
    EXPECT_EQ(*older == *newer, same) << a << " " << b;
    EXPECT_EQ(*older < *newer, !same) << a << " < " << b;
    EXPECT_FALSE(*newer < *older) << b << " < " << a;
  }
  EXPECT_EQ(Version::parse("0.2.0-rc.1+x")->text(), "0.2.0-rc.1+x");
}

TEST(Version, RefusesWhatIsNoVersion) {
  for (const char* text : {"", "v1.0.0", "1..0", ".1", "1.", "1.0.0-", "1.0.0-rc..1", "1.0.0+",
                           "1.0.0-rc_1", "1.0 ", " 1.0", "1.x", "latest", "1.0.0-ü", "-1.0"}) {
    EXPECT_FALSE(Version::parse(text)) << '"' << text << '"';
  }
}

TEST(Version, ReadsTheBundledVersionFromTheTarballsName) {
  EXPECT_EQ(bundledVersion("kestravine-0.2.0.tar.gz")->text(), "0.2.0");
  EXPECT_EQ(bundledVersion("kestravine-1.0.0-rc.1.tar.gz")->text(), "1.0.0-rc.1");
  for (const char* name : {"kestravine-.tar.gz", "kestravine-next.tar.gz", "kestravine-0.2.0.tgz",
                           "Kestravine-0.2.0.tar.gz", "kestravine.tar.gz", "kestravine-0.2.0"}) {
    EXPECT_FALSE(bundledVersion(name)) << name;
  }
}

class InstalledVersion : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all(home_);
    std::filesystem::create_directories(home_ + "/app");
  }
  void write(const std::string& text) { std::ofstream(home_ + "/app/package.json") << text; }
  std::optional<std::string> read() const {
    const auto version = installedVersion(home_);
    return version ? std::optional(version->text()) : std::nullopt;
  }
  const std::string home_ = std::string(TEST_SCRATCH) + "/installed-version";
};

TEST_F(InstalledVersion, IsTheVersionMemberOfTheProductsPackage) {
  struct Case {
    const char* json;
    std::optional<std::string> version;
  };
  for (const Case& c : std::initializer_list<Case>{
           {R"({"name":"varnholt","version":"0.1.0"})", "0.1.0"},
           {R"({"dependencies":{"version":"9.0.0"},"version":"0.1.0-rc.2"})", "0.1.0-rc.2"},
           {R"({"name":"varnholt"})", std::nullopt},
           {R"({"version":1})", std::nullopt},
           {R"({"version":"next"})", std::nullopt},
           {R"(["version","0.1.0"])", std::nullopt},
           {R"({"version":"0.1.0")", std::nullopt},  // cut short
           {"", std::nullopt},
       }) {
    write(c.json);
    EXPECT_EQ(read(), c.version) << c.json;
  }
}

TEST_F(InstalledVersion, IsNoneWhereNoSmallRegularFileStands) {
  EXPECT_EQ(read(), std::nullopt) << "no package.json";
  std::filesystem::create_directory(home_ + "/app/package.json");
  EXPECT_EQ(read(), std::nullopt) << "a folder";
  std::filesystem::remove(home_ + "/app/package.json");
  // A FIFO would block a reader that waits for a writer.
  ASSERT_EQ(::mkfifo((home_ + "/app/package.json").c_str(), 0600), 0);
  EXPECT_EQ(read(), std::nullopt) << "a FIFO";
  std::filesystem::remove(home_ + "/app/package.json");
  std::filesystem::create_symlink("/dev/zero", home_ + "/app/package.json");
  EXPECT_EQ(read(), std::nullopt) << "a device without end";
  std::filesystem::remove(home_ + "/app/package.json");
  write(R"({"version":"0.1.0"})" + std::string(1 << 20, ' '));  // whole within its first MiB
  EXPECT_EQ(read(), std::nullopt) << "over 1 MiB";
}

}  // namespace
}  // namespace kestravine
