#include <gmock/gmock.h>

#include "support/model_fixture.h"

namespace kestravine::testing {
namespace {

using Field = Model::Field;
using Fields = std::vector<Field>;
using Offer = Model::Offer;
using Phase = Model::Phase;

constexpr const char* kUpdateHeadline = "这个安装包里有新版本的Varnholt";

// The product home holds an installed product whose package.json says `version` (none: no such
// member), with a service start that ends at once.
class UpdateTest : public ModelTest {
 protected:
  static void installVersion(const std::string& version) {
    writeFile(home() + "/app/package.json",
              "{" + (version.empty() ? "" : "\"version\": \"" + version + "\", ") +
                  "\"scripts\": {\"zorvel:up\": \"exit 0\"}}\n");
  }
  // Puts `names` in the resource folder in place of its tarball.
  static void bundle(const std::vector<std::string>& names) {
    std::filesystem::remove(resources() + "/kestravine-2.0.1.tar.gz");
    for (const auto& name : names) writeFile(resources() + "/" + name, "");
  }
  void expectUpdateOffered(const std::string& installed, const std::string& bundled) {
    EXPECT_EQ(model->phase(), Phase::ready);
    EXPECT_EQ(model->offer(), Offer::update);
    EXPECT_EQ(model->headline(), kUpdateHeadline);
    EXPECT_EQ(model->status(), "这台电脑上是 " + installed + "，这个安装包里是 " + bundled + "。");
    EXPECT_FALSE(model->canCancel());
    EXPECT_TRUE(markedProcesses().empty()) << "nothing starts before the user chooses";
  }
};

// Only a bundled version newer than the installed one is offered; the tarball is the one the
// install would take (the first by name). Anything else, unreadable versions included, starts
// the installed product as before.
TEST_F(UpdateTest, OffersTheUpdateOnlyWhenTheBundledVersionIsNewer) {
  struct Row {
    std::string installed;
    std::vector<std::string> bundled;
    std::optional<std::string> offered;  // the bundled version named, if offered
  };
  const Row table[] = {
      {"0.1.0", {"kestravine-2.0.1.tar.gz"}, "2.0.1"},
      {"1.9.5", {"kestravine-1.9.0.tar.gz", "kestravine-1.10.0.tar.gz"}, "1.10.0"},
      {"1.9.5", {"kestravine-1.9.0.tar.gz", "kestravine-a.tar.gz"}, std::nullopt},
      {"2.0.1", {"kestravine-2.0.1.tar.gz"}, std::nullopt},
      {"3.0.0", {"kestravine-2.0.1.tar.gz"}, std::nullopt},
      {"", {"kestravine-2.0.1.tar.gz"}, std::nullopt},
      {"next", {"kestravine-2.0.1.tar.gz"}, std::nullopt},
      {"0.1.0", {"kestravine-latest.tar.gz"}, std::nullopt},
      {"0.1.0", {}, std::nullopt},
  };
  for (const Row& row : table) {
    fresh();
    installVersion(row.installed);
    bundle(row.bundled);
    Fields seen;
    model->addListener([&](Field f) { seen.push_back(f); });
    model->check();
    const std::string name = "installed " + row.installed + ", bundled " +
                             (row.bundled.empty() ? "none" : row.bundled.back());
    if (row.offered) {
      expectUpdateOffered(row.installed, *row.offered);
      EXPECT_EQ(seen, (Fields{Field::headline, Field::status, Field::offer, Field::phase})) << name;
      continue;
    }
    // The installed product starts, with not a notification more than before.
    EXPECT_EQ(model->phase(), Phase::working) << name;
    EXPECT_EQ(model->offer(), Offer::install) << name;
    EXPECT_EQ(model->headline(), "Varnholt已经在这台电脑上了") << name;
    EXPECT_EQ(seen, (Fields{Field::headline, Field::phase, Field::status, Field::canCancel}))
        << name;
    model->cancel();
    settle();
  }
}

// The update is the install, with the same script and arguments. After a failed or cancelled
// update the offer stands again, and the installed version can still be started instead. Once the
// installed version is the bundled one, a retry offers the install as it always did.
TEST_F(UpdateTest, AFailedOrCancelledUpdateIsOfferedAgainBesideTheInstalledVersion) {
  installVersion("0.1.0");
  model->check();
  writeInstallScript("echo half; exit 3");
  model->install();
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(readFile(record() + "/args"),
            resources() + "/install.sh\n--from\n" + resources() + "/kestravine-2.0.1.tar.gz\n");
  EXPECT_EQ(model->phase(), Phase::failed);
  EXPECT_THAT(model->failure(), ::testing::StartsWith("没能装完（退出码 3）"));
  model->retry();
  expectUpdateOffered("0.1.0", "2.0.1");
  EXPECT_TRUE(model->lines().empty());
  EXPECT_EQ(model->failure(), "");

  writeInstallScript("echo half; sleep 30");
  model->install();
  ASSERT_TRUE(platform().runUntil([&] { return model->lines().size() == 1; }));
  model->cancel();
  EXPECT_EQ(model->failure(), "停下了。什么都没改坏，再点一次可以重来。");
  model->retry();
  expectUpdateOffered("0.1.0", "2.0.1");

  model->startInstalled();
  EXPECT_EQ(model->headline(), "Varnholt已经在这台电脑上了");
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_EQ(model->status(), "正在打开Varnholt。");
  EXPECT_TRUE(model->canCancel());
  model->cancel();
  settle();

  // An update that got as far as putting the new version in place, then failed.
  writeInstallScript("echo '{\"version\": \"2.0.1\"}' > '" + home() + "/app/package.json'; exit 1");
  model->retry();
  model->install();
  ASSERT_TRUE(runToEnd());
  Fields seen;
  model->addListener([&](Field f) { seen.push_back(f); });
  model->retry();
  EXPECT_EQ(seen,
            (Fields{Field::failure, Field::lines, Field::offer, Field::phase, Field::headline}));
  EXPECT_EQ(model->offer(), Offer::install);
  EXPECT_EQ(model->headline(), "Kestravine会装在这台电脑上");
}

}  // namespace
}  // namespace kestravine::testing
