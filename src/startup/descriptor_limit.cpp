#include "startup/descriptor_limit.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace kestravine::descriptor_limit {

long current() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kNeeded;
  return static_cast<long>(std::min<rlim_t>(limit.rlim_cur, 1L << 30));
}

std::optional<long> ensure() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return std::nullopt;
  const auto needed = static_cast<rlim_t>(kNeeded);
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= needed) return std::nullopt;
  if (limit.rlim_max == RLIM_INFINITY || limit.rlim_max >= needed) {
    limit.rlim_cur = needed;
    if (::setrlimit(RLIMIT_NOFILE, &limit) == 0) return std::nullopt;
  }
  return static_cast<long>(limit.rlim_cur);
}

std::string shortage(long limit, int error) {
  const std::string head = "kestravine-launcher：";
  if (error == ENFILE)
    return head + "整个系统能同时打开的文件已经用完了（ENFILE）。关掉一些程序后再打开。\n";
  const std::string cause = head + "能同时打开的文件不够用（EMFILE）：";
  if (limit < kNeeded)
    return cause + "这个程序最多只能同时打开 " + std::to_string(limit) + " 个文件，至少要 " +
           std::to_string(kNeeded) + " 个。用 ulimit -n 1024 调高后再打开。\n";
  return cause + "已经用到上限 " + std::to_string(limit) + " 个。用 ulimit -n 调高后再打开。\n";
}

}  // namespace kestravine::descriptor_limit
