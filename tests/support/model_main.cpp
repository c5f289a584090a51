#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/http_server.h"
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
  // The probe asks 127.0.0.1 at 5199 + the offset: point it at this process's own reserved port,
  // before the environment snapshot is taken. An offset the test entry sets stays as it is.
  const int port = kestravine::testing::server().port();
  setenv("ZORVEL_PORT_OFFSET", std::to_string(port - 5199).c_str(), 0);
  kestravine::installPlatform(kestravine::testing::platform());
  return RUN_ALL_TESTS();
}
