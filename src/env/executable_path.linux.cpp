#include "env/executable_path.h"

#include <unistd.h>

#include <vector>

namespace kestravine {

std::string executablePath() {
  std::vector<char> buffer(4096);
  for (;;) {
    ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n < 0) return {};
    if (static_cast<std::size_t>(n) < buffer.size()) return {buffer.data(), static_cast<size_t>(n)};
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace kestravine
