#include "model/machine_words.h"

namespace kestravine {

WordedTexts wordedTexts(const MachineWords& words) {
  const std::string on(words.onThisMachine);
  return {
      "Varnholt已经在" + on + "了",
      "Kestravine会装在" + on,
      std::string(words.inThePackage) + "少了安装文件。重新下载一份吧。",
      "）。多半是网络，或者" + on + "已经有一份在跑。再试一次；不行就把下面的详情发给我。",
      "看一眼" + std::string(words.thisMachine) + "。",
      "数据只在" + on + "，不上传。装好以后" + std::string(words.openIt) + "就能进Varnholt。",
      std::string(words.inThePackage) + "有新版本的Varnholt",
      on + "是 ",
      "，" + std::string(words.inThePackage) + "是 ",
  };
}

const WordedTexts& machineTexts() {
  static const WordedTexts texts = wordedTexts(kMachineWords);
  return texts;
}

}  // namespace kestravine
