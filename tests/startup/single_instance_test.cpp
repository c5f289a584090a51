#include "startup/single_instance.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/system_call_mock.h"

namespace kestravine::testing {
namespace {

namespace fs = std::filesystem;

// A runtime directory and a home of the test's own, both the user's alone; the system's
// /run/user/<uid> counts as another user's, so that no test reaches it.
class SingleInstanceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(scratch_);
    for (const auto& dir : {runtime(), home()}) {
      fs::create_directories(dir);
      ::chmod(dir.c_str(), 0700);
    }
    setenv("XDG_RUNTIME_DIR", runtime().c_str(), 1);
    setenv("HOME", home().c_str(), 1);
    mock::reset();
    mock::foreign("/run/user/" + std::to_string(::getuid()));
  }
  void TearDown() override { mock::reset(); }
  std::string runtime() const { return scratch_ + "/runtime"; }
  std::string home() const { return scratch_ + "/home"; }
  // The guard's files in `folder`, by their endings.
  static std::vector<std::string> files(const std::string& folder) {
    std::vector<std::string> endings;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
      endings.push_back(entry.path().extension().string());
    std::sort(endings.begin(), endings.end());
    return endings;
  }
  const std::string scratch_ = std::string(TEST_SCRATCH) + "/single-instance";
};

using Files = std::vector<std::string>;

// The guard lives in the first folder no other user can make or replace: the runtime
// directory's when it is the user's, else the cache folder's; a folder of the guard's name that
// another user made, or that is open to others, is passed over as well.
TEST_F(SingleInstanceTest, TheGuardLivesOnlyWhereNoOtherUserCanWrite) {
  struct Row {
    std::vector<std::string> foreign;
    mode_t guardFolderMode;  // of the runtime directory's guard folder, made beforehand; 0: none
    std::string where;
  };
  const Row table[] = {
      {{}, 0, "/runtime/kestravine-launcher"},
      {{"/runtime"}, 0, "/home/.cache/kestravine-launcher"},
      {{"/runtime/kestravine-launcher"}, 0, "/home/.cache/kestravine-launcher"},
      {{}, 0750, "/home/.cache/kestravine-launcher"},  // open to others: passed over too
  };
  for (const Row& row : table) {
    SetUp();
    for (const auto& ending : row.foreign) mock::foreign(ending);
    if (row.guardFolderMode != 0) {
      fs::create_directory(runtime() + "/kestravine-launcher");
      ::chmod((runtime() + "/kestravine-launcher").c_str(), row.guardFolderMode);
    }
    {
      SingleInstance guard("/opt/product");
      EXPECT_EQ(guard.answer(), SingleInstance::Answer::first);
      EXPECT_EQ(files(scratch_ + row.where), (Files{".lock", ".sock"})) << row.where;
    }
    EXPECT_EQ(files(scratch_ + row.where), Files{}) << "left behind in " << row.where;
  }
}

// Without any such folder the launcher says so in one line and runs unguarded, as the first.
TEST_F(SingleInstanceTest, WithoutAPlaceOfItsOwnItSaysSoAndRunsUnguarded) {
  mock::foreign("/runtime");
  mock::foreign("/home");
  ::testing::internal::CaptureStderr();
  SingleInstance guard("/opt/product");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "kestravine-launcher：找不到只属于你的文件夹来放单实例锁，这次不防重复打开。\n");
  EXPECT_EQ(guard.answer(), SingleInstance::Answer::first);
  EXPECT_EQ(mock::calls("flock"), 0);
}

// A lock taken on a file that its holder removed meanwhile guards nothing: the file is opened
// and locked again.
TEST_F(SingleInstanceTest, ALockOnARemovedFileIsTakenAgain) {
  mock::alterFstat(
      ".lock", [](struct stat& info) { info.st_nlink = 0; }, 1);
  SingleInstance guard("/opt/product");
  EXPECT_EQ(guard.answer(), SingleInstance::Answer::first);
  EXPECT_EQ(mock::calls("flock"), 2);
  EXPECT_EQ(files(runtime() + "/kestravine-launcher"), (Files{".lock", ".sock"}));
}

// Without its socket the lock still guards: a later launcher for the same home is not the
// first, and says that the first does not answer.
TEST_F(SingleInstanceTest, WithoutItsSocketTheLockStillGuards) {
  mock::fail("bind", EADDRINUSE);
  SingleInstance first("/opt/product");
  EXPECT_EQ(first.answer(), SingleInstance::Answer::first);
  EXPECT_EQ(files(runtime() + "/kestravine-launcher"), Files{".lock"});
  first.serve([](const QString&) { return false; });  // nothing to serve
  SingleInstance later("/opt/product");
  EXPECT_EQ(later.answer(), SingleInstance::Answer::unknown);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(later.report(), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "kestravine-launcher：这个产品目录已经有一个启动器在运行，但它没有回应。\n");
  SingleInstance other("/opt/other-product");
  EXPECT_EQ(other.answer(), SingleInstance::Answer::first);
}

}  // namespace
}  // namespace kestravine::testing
