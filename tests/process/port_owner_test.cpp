#include "process/port_owner.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <sstream>

#include "support/processes.h"
#include "system/spawn.h"
#include "system/system_calls.h"

extern char** environ;

namespace kestravine {
namespace {

using Kind = PortOwner::Kind;
namespace fs = std::filesystem;

// A real process listening on a port, as helpers/listen.py starts one.
struct Listener {
  pid_t spawned = -1;  // the process started (a shell, for a listener that is its child)
  pid_t pid = -1;      // the one that listens
  int port = 0;

  Listener() = default;
  Listener(const Listener&) = delete;
  ~Listener() {
    if (pid > 0) ::kill(pid, SIGKILL);
    if (spawned > 0) {
      ::kill(spawned, SIGKILL);
      waitForExit(spawned);
    }
    if (pid != spawned) testing::eventually([this] { return testing::isGone(pid); });
  }
};

std::vector<std::string> environmentWith(const std::vector<std::string>& extra) {
  std::vector<std::string> entries(extra);
  for (char** entry = environ; *entry != nullptr; ++entry) entries.emplace_back(*entry);
  return entries;  // the first of a name wins
}

// Starts the request and waits for its "port <n> pid <p>" line; a port of 0 if none came.
void startListening(Listener& listener, SpawnRequest request) {
  auto started = spawnWithOutput(std::move(request));
  listener.spawned = started.pid;
  ASSERT_GT(started.pid, 0);
  std::string line;
  char c = 0;
  while (line.find('\n') == std::string::npos &&
         system_calls::retryOnInterrupt([&] { return ::read(started.output.get(), &c, 1); }) == 1)
    line += c;
  std::istringstream words(line);
  std::string portWord, pidWord;
  words >> portWord >> listener.port >> pidWord >> listener.pid;
}

class PortOwnerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(scratch());
    fs::create_directories(home() + "/app");
    fs::create_directories(scratch() + "/elsewhere");
    fs::create_directory_symlink(home(), scratch() + "/link");
  }
  static std::string scratch() { return fs::weakly_canonical(TEST_SCRATCH "/port_owner").string(); }
  static std::string home() { return scratch() + "/home"; }
};

// Where the listening process stands tells whether it is the product: every tie to the home
// counts, through symbolic links and relative paths, and a mark of a step for the home; a
// prefix of the home's path, a mark of another home, or nothing at all is a stranger's.
TEST_F(PortOwnerTest, TiesAProcessToTheHomeByWhereItStandsOrWhatItCarries) {
  const std::string elsewhere = scratch() + "/elsewhere";
  struct Row {
    const char* what;
    std::vector<std::string> words;
    std::string cwd;
    std::vector<std::string> environment;
    Kind expected;
  };
  const Row table[] = {
      {"no tie", {}, elsewhere, {}, Kind::foreign},
      {"argument", {home() + "/app/server.js"}, elsewhere, {}, Kind::product},
      {"option", {"--root=" + home()}, elsewhere, {}, Kind::product},
      {"relative argument", {"home/app/server.js"}, scratch(), {}, Kind::product},
      {"through a link", {scratch() + "/link/app/server.js"}, elsewhere, {}, Kind::product},
      {"through ..", {elsewhere + "/../home/app"}, elsewhere, {}, Kind::product},
      {"working directory", {}, home() + "/app", {}, Kind::product},
      {"a prefix of the home",
       {home() + "-old/app/server.js", home() + "x"},
       elsewhere,
       {},
       Kind::foreign},
      {"mark of the home", {}, elsewhere, {"KESTRAVINE_STEP_HOME=" + home()}, Kind::product},
      {"mark of another home",
       {},
       elsewhere,
       {"KESTRAVINE_STEP_HOME=" + home() + "2"},
       Kind::foreign},
  };
  for (const auto& row : table) {
    std::vector<std::string> args{LISTEN_HELPER, "127.0.0.1"};
    args.insert(args.end(), row.words.begin(), row.words.end());
    Listener listener;
    startListening(listener,
                   {"/usr/bin/python3", args, row.cwd, environmentWith(row.environment), -1});
    ASSERT_GT(listener.port, 0) << row.what;
    const PortOwner owner = PortOwner::of(listener.port, home());
    EXPECT_EQ(owner.kind, row.expected) << row.what;
    EXPECT_EQ(owner.pid, listener.pid) << row.what;
    EXPECT_EQ(owner.name, "python3") << row.what;
    EXPECT_EQ(owner.uid, ::geteuid()) << row.what;
  }
}

// A server that a product script started belongs to the product through its parent.
TEST_F(PortOwnerTest, ABelongsToTheHomeThroughItsAncestors) {
  for (const auto& [word, expected] : {std::pair{home() + "/app/start.sh", Kind::product},
                                       {scratch() + "/other.sh", Kind::foreign}}) {
    Listener listener;
    // The shell stays the listener's parent (no exec), its last argument the script's path.
    startListening(listener, {"/bin/bash",
                              {"-c", "python3 \"$0\" 127.0.0.1; :", LISTEN_HELPER, word},
                              scratch() + "/elsewhere",
                              std::nullopt,
                              -1});
    ASSERT_GT(listener.port, 0);
    ASSERT_NE(listener.pid, listener.spawned);
    const PortOwner owner = PortOwner::of(listener.port, home());
    EXPECT_EQ(owner.kind, expected) << word;
    EXPECT_EQ(owner.pid, listener.pid);
  }
}

// The socket that answers 127.0.0.1: its own address, its IPv4-mapped form and the wildcards of
// both families do; ::1, and an IPv6 wildcard that takes IPv6 only, do not.
TEST_F(PortOwnerTest, FindsTheSocketThatAnswersTheLoopbackAddress) {
  const std::pair<const char*, Kind> table[] = {
      {"127.0.0.1", Kind::foreign}, {"0.0.0.0", Kind::foreign}, {"::ffff:127.0.0.1", Kind::foreign},
      {"::", Kind::foreign},        {"::1", Kind::nobody},      {"::/v6only", Kind::nobody},
  };
  for (const auto& [address, expected] : table) {
    Listener listener;
    startListening(listener,
                   {"/usr/bin/python3", {LISTEN_HELPER, address}, std::nullopt, std::nullopt, -1});
    if (listener.port == 0) {
      ADD_FAILURE() << address << ": could not listen (no IPv6 on this machine?)";
      continue;
    }
    const PortOwner owner = PortOwner::of(listener.port, home());
    EXPECT_EQ(owner.kind, expected) << address;
    if (expected != Kind::nobody) EXPECT_EQ(owner.address, address) << address;
  }
}

// Another user's socket is never the product, whatever ties it; root's socket, seen by another
// user, cannot be told. Needs root to act as another user (one of the test's own).
TEST_F(PortOwnerTest, AnotherUsersSocketIsNeverTheProduct) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can run a process as another user here";
  const uid_t other = testing::unusedUid();
  ASSERT_NE(other, 0u);
  const std::string kOther = std::to_string(other);
  const std::vector<std::string> asOther{"--reuid", kOther, "--regid", kOther, "--clear-groups"};
  fs::permissions(scratch(), fs::perms::others_read | fs::perms::others_exec,
                  fs::perm_options::add);

  auto args = asOther;
  for (const char* word : {"/usr/bin/python3", LISTEN_HELPER, "127.0.0.1"}) args.emplace_back(word);
  args.push_back(home() + "/app/server.js");  // a tie that must not count
  Listener theirs;
  startListening(theirs, {"/usr/bin/setpriv", args, "/", std::nullopt, -1});
  if (theirs.port == 0) GTEST_SKIP() << "setpriv could not start the helper as uid " << kOther;
  const PortOwner owner = PortOwner::of(theirs.port, home());
  EXPECT_EQ(owner.kind, Kind::otherUser);
  EXPECT_EQ(owner.uid, other);
  EXPECT_EQ(owner.pid, -1);

  // This process's own socket, as the other user sees it: root's.
  Listener ours;
  startListening(
      ours, {"/usr/bin/python3", {LISTEN_HELPER, "127.0.0.1"}, std::nullopt, std::nullopt, -1});
  args = asOther;
  for (const std::string& word :
       {std::string(PORT_OWNER_HELPER), std::to_string(ours.port), home()})
    args.push_back(word);
  auto seen = spawnWithOutput({"/usr/bin/setpriv", args, "/", std::nullopt, -1});
  ASSERT_GT(seen.pid, 0);
  const std::string answer = system_calls::readToEnd(seen.output.get());
  EXPECT_EQ(waitForExit(seen.pid), 0);
  EXPECT_EQ(answer, "unknown 0 \n");
}

}  // namespace
}  // namespace kestravine
