#include <gtest/gtest.h>

#include "support/test_platform.h"

namespace kestravine::testing {

VirtualPlatform& platform() {
  static VirtualPlatform instance;
  return instance;
}

}  // namespace kestravine::testing

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  kestravine::installPlatform(kestravine::testing::platform());
  return RUN_ALL_TESTS();
}
