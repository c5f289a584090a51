// The main of every test program: the virtual platform as the launcher's platform, this
// process's own HTTP port as the product's port, and for widget tests an offscreen QApplication.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/http_server.h"
#include "support/test_platform.h"

#ifdef KESTRAVINE_TEST_WIDGETS
#include <QApplication>
#endif

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
  // The probe asks 127.0.0.1 at 5199 + the offset: point it at a port of this process's own,
  // before the environment snapshot is taken. An offset the test entry sets stays as it is.
  const int port = kestravine::testing::server().port();
  setenv("ZORVEL_PORT_OFFSET", std::to_string(port - 5199).c_str(), 0);
  kestravine::installPlatform(kestravine::testing::platform());
#ifdef KESTRAVINE_TEST_WIDGETS
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
#endif
  return RUN_ALL_TESTS();
}
