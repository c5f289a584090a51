#include "process/port_owner.h"

#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "process/process_identity.h"
#include "process/step_mark.h"
#include "system/proc_directory.h"
#include "system/system_calls.h"
#include "system/tcp_listeners.h"

namespace kestravine {

namespace {

namespace fs = std::filesystem;

// How far up the parents a tie is looked for: further than any product script nests servers.
constexpr int kMaxAncestors = 64;
// A connection to an IPv6 wildcard that is taken or refused at once on the loopback interface;
// only one whose listener's queue is full takes longer.
constexpr int kConnectTimeoutMs = 1000;

bool lies(const fs::path& path, const std::string& home) {
  const std::string text = path.lexically_normal().string();
  return text.starts_with(home) &&
         (text.size() == home.size() || text[home.size()] == '/' || home == "/");
}

// Whether `argument` names a path in the home, taken relative to `cwd` when it is relative.
bool namesPathIn(const std::string& argument, const std::string& cwd, const std::string& home) {
  if (argument.find('/') == std::string::npos) return false;
  fs::path path(argument);
  if (path.is_relative()) {
    if (cwd.empty()) return false;
    path = fs::path(cwd) / path;
  }
  if (lies(path, home)) return true;
  // Through a symbolic link to the home, or "..": what it names in the file system counts.
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(path, error);
  return !error && lies(resolved, home);
}

std::vector<std::string> splitNul(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t end = std::min(text.find('\0', pos), text.size());
    parts.push_back(text.substr(pos, end - pos));
    pos = end + 1;
  }
  return parts;
}

ProcessTies tiesOf(const ProcDirectory& dir) {
  return {dir.readLink("exe"), dir.readLink("cwd"), splitNul(dir.read("cmdline")),
          dir.read("environ")};
}

// The process itself or one of its ancestors belongs to the home.
bool isProduct(pid_t pid, const std::string& home) {
  for (int step = 0; step <= kMaxAncestors && pid > 1; ++step) {
    const auto dir = ProcDirectory::open(pid);
    if (!dir) return false;
    if (belongsToHome(tiesOf(*dir), home)) return true;
    const auto identity = ProcessIdentity::of(*dir);
    if (!identity) return false;
    pid = identity->parent;
  }
  return false;
}

std::string commandName(const ProcDirectory& dir) {
  std::string name = dir.read("comm");
  while (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}

std::string loginName(uid_t uid) {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_name != nullptr)
    return found->pw_name;
  return {};
}

}  // namespace

bool belongsToHome(const ProcessTies& process, const std::string& home) {
  if (home.empty()) return false;
  if (!process.executable.empty() && lies(process.executable, home)) return true;
  if (!process.workingDirectory.empty() && lies(process.workingDirectory, home)) return true;
  for (const std::string& argument : process.arguments) {
    if (namesPathIn(argument, process.workingDirectory, home)) return true;
    const std::size_t equals = argument.find('=');
    if (equals != std::string::npos &&
        namesPathIn(argument.substr(equals + 1), process.workingDirectory, home))
      return true;
  }
  return StepMark::ofHome(process.environment, home);
}

PortOwner PortOwner::of(int port, const std::string& productHome) {
  const auto answering = tcp_listeners::answeringLoopback(tcp_listeners::read(), port);
  if (answering.empty()) return {};
  // A wildcard of IPv6 takes IPv4 connections too unless it was made IPv6-only, which the tables
  // do not show: ask the port itself.
  if (tcp_listeners::reachFromLoopback(answering.front()) ==
          tcp_listeners::Reach::dualStackWildcard &&
      !system_calls::connectsToLoopback(port, kConnectTimeoutMs))
    return {};

  PortOwner owner;
  owner.uid = answering.front().uid;
  owner.address = answering.front().addressText();
  if (owner.uid != ::geteuid()) {
    owner.kind = owner.uid == 0 ? Kind::unknown : Kind::otherUser;
    if (owner.kind == Kind::otherUser) owner.name = loginName(owner.uid);
    return owner;
  }
  // The socket's holders among this user's processes; several when a server handed its socket
  // to its children.
  owner.kind = Kind::unknown;
  for (pid_t pid : ProcDirectory::allPids()) {
    const auto dir = ProcDirectory::open(pid);
    if (!dir) continue;
    bool holds = false;
    for (const auto& listener : answering) holds = holds || dir->holdsSocket(listener.inode);
    if (!holds) continue;
    const bool product = isProduct(pid, productHome);
    if (product || owner.kind == Kind::unknown) {
      owner.kind = product ? Kind::product : Kind::foreign;
      owner.pid = pid;
      owner.name = commandName(*dir);
    }
    if (product) break;
  }
  return owner;
}

}  // namespace kestravine
