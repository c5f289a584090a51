// The main of every test program: marks this process's environment so that every process a test
// starts can be found again, points the probe at this process's own server, installs the
// virtual platform, and for widget tests makes an offscreen QApplication.
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/processes.h"
#include "support/test_platform.h"
#include "support/test_server.h"

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
  setenv(kestravine::testing::kMark, std::to_string(getpid()).c_str(), 1);
  // Before the environment snapshot; an offset the CTest entry sets stays as it is.
  const int offset = kestravine::testing::server::port() - 5199;
  setenv("ZORVEL_PORT_OFFSET", std::to_string(offset).c_str(), 0);
  kestravine::installPlatform(kestravine::testing::platform());
#ifdef KESTRAVINE_TEST_WIDGETS
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
#endif
  return RUN_ALL_TESTS();
}
