#include "support/test_server.h"

#include <httplib.h>

#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

namespace kestravine::testing::server {

namespace {

struct State {
  httplib::Server http;
  int port = 0;
  std::mutex mutex;  // guards what follows
  std::function<int(int)> statusFor = [](int) { return 503; };
  int requests = 0;
};

// Made on first use and never destroyed: a stalled request never ends.
State& state() {
  static State& s = []() -> State& {
    State& s = *new State;
    s.http.Get("/home/", [&s](const httplib::Request&, httplib::Response& response) {
      std::unique_lock lock(s.mutex);
      response.status = s.statusFor(++s.requests);
      lock.unlock();
      if (response.status == 0) std::this_thread::sleep_for(std::chrono::hours(1));
    });
    // A port the probe reaches as 5199 + offset, with the offset a valid one (0 to 19999).
    std::mt19937 random(std::random_device{}());
    for (int tries = 0; tries < 200 && s.port == 0; ++tries) {
      const int port = 5199 + static_cast<int>(random() % 20000);
      if (s.http.bind_to_port("127.0.0.1", port)) s.port = port;
    }
    if (s.port == 0) throw std::runtime_error("no free port between 5199 and 25198");
    std::thread([&s] { s.http.listen_after_bind(); }).detach();
    return s;
  }();
  return s;
}

}  // namespace

int port() {
  return state().port;
}

void serve(std::function<int(int)> statusFor) {
  std::lock_guard lock(state().mutex);
  state().statusFor = std::move(statusFor);
  state().requests = 0;
}

int requests() {
  std::lock_guard lock(state().mutex);
  return state().requests;
}

}  // namespace kestravine::testing::server
