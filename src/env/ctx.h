#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace kestravine {

// The values the launcher derives from its environment and its own location.
//
// Threading: every member may be called from any thread. env() is a snapshot of the process
// environment taken once, on first use (thread-safe), and never refreshed; the other members
// are recomputed on every call from that snapshot and the file system.
struct Ctx {
  Ctx() = delete;

  static const std::map<std::string, std::string>& env();
  // "KESTRAVINE_HOME" exactly as set when non-empty, otherwise the user's home + "/.kestravine".
  static std::string kestravineHome();
  // The product home as one absolute path, relative spellings resolved against the working
  // directory, without ".", ".." or symbolic links as far as it exists: what two spellings of
  // one home have in common. For telling homes apart; children get kestravineHome() as set.
  static std::string canonicalHome();
  // "ZORVEL_PORT_OFFSET" when it is a decimal integer from 0 to 19999, otherwise 0.
  static std::int64_t portOffset();
  // Where the tarball and install.sh lie: <executable dir>/../share/kestravine when that exists,
  // else the application bundle's, <executable dir>/../Resources (from Contents/MacOS).
  static std::string resourceDir();
  // Whether anything exists at `path`, following a final symbolic link; a path that cannot be
  // examined counts as absent.
  static bool fileExists(const std::string& path);
  // Whether the variable `name` is exactly "1": other values (01, true, yes, " 1", empty) and
  // its absence leave the switch off.
  static bool switchedOn(const std::string& name);
};

// The rules behind Ctx, as stateless functions of their inputs.
namespace ctx_rules {
std::string kestravineHome(const std::map<std::string, std::string>& env,
                           const std::string& userHome);
std::int64_t portOffset(std::string_view value);
// `exists` tells whether a directory exists at a path.
std::string resourceDir(const std::string& executableDir, bool (*exists)(const std::string&));
// The user's home directory: HOME when set and non-empty, else the password database's entry.
std::string userHome(const std::map<std::string, std::string>& env);
bool switchedOn(const std::map<std::string, std::string>& env, const std::string& name);
}  // namespace ctx_rules

}  // namespace kestravine
