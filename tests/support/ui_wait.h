#pragma once

#include <QCoreApplication>
#include <chrono>
#include <functional>

#include "support/test_platform.h"

namespace kestravine::testing {

// Runs both the launcher's main queue and Qt's events until `done()` holds; false if it does
// not within `limit` of real time.
inline bool waitFor(const std::function<bool()>& done,
                    std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    platform().runUntil(done, std::chrono::milliseconds(5));
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    if (done()) return true;
  }
  return done();
}

}  // namespace kestravine::testing
