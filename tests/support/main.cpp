#include <gtest/gtest.h>

#include "support/test_platform.h"

namespace kestravine::testing {

VirtualPlatform& platform() {
  // Never destroyed, like the application's platform: threads of commands still running when
  // the tests end may yet post to it.
  static VirtualPlatform& instance = *new VirtualPlatform;
  return instance;
}

}  // namespace kestravine::testing

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  kestravine::installPlatform(kestravine::testing::platform());
  return RUN_ALL_TESTS();
}
