#include "env/ctx.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "env/environment.h"
#include "env/executable_path.h"
#include "text/decimal.h"

namespace kestravine {

namespace {

bool isDirectory(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

const std::string* lookup(const std::map<std::string, std::string>& env, const char* name) {
  auto it = env.find(name);
  return it == env.end() ? nullptr : &it->second;
}

}  // namespace

namespace ctx_rules {

std::string userHome(const std::map<std::string, std::string>& env) {
  if (const std::string* home = lookup(env, "HOME"); home != nullptr && !home->empty()) {
    return *home;
  }
  // getpwuid_r rather than getpwuid: Ctx may be read from several threads at once.
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr) {
    return found->pw_dir;
  }
  return "/";
}

std::string kestravineHome(const std::map<std::string, std::string>& env, const std::string& home) {
  if (const std::string* value = lookup(env, "KESTRAVINE_HOME"); value && !value->empty()) {
    return *value;
  }
  // Appending a path component: no doubled separator when the home ends in one.
  std::string base = home;
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  if (base == "/") return "/.kestravine";
  return base + "/.kestravine";
}

std::int64_t portOffset(std::string_view value) {
  auto parsed = parseDecimal<std::int64_t>(value);
  if (!parsed) return 0;
  // One unsigned comparison: negative values wrap to huge ones and fall outside too.
  return static_cast<std::uint64_t>(*parsed) < 20000 ? *parsed : 0;
}

std::string resourceDir(const std::string& executableDir, bool (*exists)(const std::string&)) {
  std::string shared = executableDir + "/../share/kestravine";
  if (exists(shared)) return std::filesystem::path(shared).lexically_normal().string();
  // An application bundle: the executable lies in Contents/MacOS, the resources beside it.
  return std::filesystem::path(executableDir + "/../Resources").lexically_normal().string();
}

bool switchedOn(const std::map<std::string, std::string>& env, const std::string& name) {
  const auto value = env.find(name);
  return value != env.end() && value->second == "1";
}

}  // namespace ctx_rules

const std::map<std::string, std::string>& Ctx::env() {
  static const std::map<std::string, std::string> snapshot = processEnvironment();
  return snapshot;
}

std::string Ctx::kestravineHome() {
  return ctx_rules::kestravineHome(env(), ctx_rules::userHome(env()));
}

std::string Ctx::canonicalHome() {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::path path = fs::absolute(kestravineHome(), error);
  if (error) path = kestravineHome();  // no working directory left to resolve it against
  if (auto canonical = fs::weakly_canonical(path, error); !error) path = canonical;
  std::string text = path.lexically_normal().string();
  // "/opt/k/" and "/opt/k" are one home.
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

std::int64_t Ctx::portOffset() {
  const std::string* value = lookup(env(), "ZORVEL_PORT_OFFSET");
  return ctx_rules::portOffset(value ? std::string_view(*value) : std::string_view());
}

bool Ctx::fileExists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

bool Ctx::switchedOn(const std::string& name) {
  return ctx_rules::switchedOn(env(), name);
}

std::string Ctx::resourceDir() {
  std::string exe = executablePath();
  std::string dir = std::filesystem::path(exe).parent_path().string();
  return ctx_rules::resourceDir(dir, isDirectory);
}

}  // namespace kestravine
