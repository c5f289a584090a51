// Widget tests: a QApplication on the offscreen platform (no display needed) and the virtual
// platform for the launcher's own main queue and timers.
#include <gtest/gtest.h>

#include <QApplication>

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
  qputenv("QT_QPA_PLATFORM", "offscreen");
  ::testing::InitGoogleTest(&argc, argv);
  // A port of our own that refuses connections: a probe that starts never finds a server.
  setenv("ZORVEL_PORT_OFFSET", std::to_string(kestravine::testing::server().port() - 5199).c_str(),
         0);
  QApplication app(argc, argv);
  kestravine::installPlatform(kestravine::testing::platform());
  return RUN_ALL_TESTS();
}
