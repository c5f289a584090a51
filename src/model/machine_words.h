#pragma once

#include <string>
#include <string_view>

namespace kestravine {

// The words in the launcher's texts that name the user's machine, the package the launcher came
// in and how it is started again. The original platform names a Mac, a disk image and a double
// click; other desktops name a computer, an installation package and opening it. Chinese text
// sets a Latin word apart with spaces, so the words come with what they join.
//
// Threading: constants and a pure function; any thread.
struct MachineWords {
  std::string_view thisMachine;    // ending a sentence
  std::string_view onThisMachine;  // "on this machine", going on in Chinese
  std::string_view inThePackage;
  std::string_view openIt;
};

inline constexpr MachineWords kMacWords{"这台 Mac", "这台 Mac 上", "这个 dmg 里", "双击它"};
inline constexpr MachineWords kComputerWords{"这台电脑", "这台电脑上", "这个安装包里", "打开它"};

#ifdef __APPLE__
inline constexpr const MachineWords& kMachineWords = kMacWords;
#else
inline constexpr const MachineWords& kMachineWords = kComputerWords;
#endif

// The texts that hold those words.
struct WordedTexts {
  std::string headlineInstalled;
  std::string headlineNotInstalled;
  std::string missingFiles;
  std::string installFailedAfter;  // follows the exit code
  std::string checking;
  std::string description;
  // A newer product in the package than the one installed: the headline, and the status that
  // names both versions, as installedIs + installed + bundledIs + bundled + "。".
  std::string headlineUpdate;
  std::string installedIs;
  std::string bundledIs;
};

WordedTexts wordedTexts(const MachineWords& words);
// This build's, made once.
const WordedTexts& machineTexts();

}  // namespace kestravine
