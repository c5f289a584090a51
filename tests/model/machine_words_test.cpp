#include "model/machine_words.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

// The original platform's texts stand exactly as the product has always shown them; other
// desktops name a computer, an installation package and opening it, and nothing else changes.
TEST(MachineWords, MakeEachPlatformsTexts) {
  const std::pair<WordedTexts, WordedTexts> table[] = {
      {wordedTexts(kMacWords),
       {"Varnholt已经在这台 Mac 上了", "Kestravine会装在这台 Mac 上",
        "这个 dmg 里少了安装文件。重新下载一份吧。",
        "）。多半是网络，或者这台 Mac 上已经有一份在跑。再试一次；不行就把下面的详情发给我。",
        "看一眼这台 Mac。", "数据只在这台 Mac 上，不上传。装好以后双击它就能进Varnholt。"}},
      {wordedTexts(kComputerWords),
       {"Varnholt已经在这台电脑上了", "Kestravine会装在这台电脑上",
        "这个安装包里少了安装文件。重新下载一份吧。",
        "）。多半是网络，或者这台电脑上已经有一份在跑。再试一次；不行就把下面的详情发给我。",
        "看一眼这台电脑。", "数据只在这台电脑上，不上传。装好以后打开它就能进Varnholt。"}},
  };
  for (const auto& [made, expected] : table) {
    EXPECT_EQ(made.headlineInstalled, expected.headlineInstalled);
    EXPECT_EQ(made.headlineNotInstalled, expected.headlineNotInstalled);
    EXPECT_EQ(made.missingFiles, expected.missingFiles);
    EXPECT_EQ(made.installFailedAfter, expected.installFailedAfter);
    EXPECT_EQ(made.checking, expected.checking);
    EXPECT_EQ(made.description, expected.description);
  }
}

}  // namespace
}  // namespace kestravine
