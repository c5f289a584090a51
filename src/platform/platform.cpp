#include "platform/platform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace kestravine {

namespace {
std::atomic<Platform*> installed{nullptr};
}

Platform& platform() {
  Platform* p = installed.load(std::memory_order_acquire);
  if (p == nullptr) {
    // A programming error, not a runtime condition: fail loudly rather than lose callbacks.
    std::fputs("kestravine: no platform installed\n", stderr);
    std::abort();
  }
  return *p;
}

void installPlatform(Platform& p) {
  installed.store(&p, std::memory_order_release);
}

}  // namespace kestravine
