#include "support/test_server.h"

#include <httplib.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <random>
#include <thread>

namespace kestravine::testing::server {

namespace {

struct State {
  State() {
    http.Get("/home/", [this](const httplib::Request&, httplib::Response& response) {
      std::unique_lock lock(mutex);
      response.status = statusFor(++requests);
      const int stalledIn = generation;
      released.wait(lock, [&] { return response.status != 0 || generation != stalledIn; });
      if (response.status == 0) response.status = 503;
    });
    // A port the probe reaches as 5199 + offset, with the offset a valid one (0 to 19999).
    std::mt19937 random(std::random_device{}());
    for (int tries = 0; tries < 200 && port == 0; ++tries) {
      const int candidate = 5199 + static_cast<int>(random() % 20000);
      if (http.bind_to_port("127.0.0.1", candidate)) port = candidate;
    }
    if (port == 0) {
      std::fputs("no free port between 5199 and 25198\n", stderr);
      std::abort();
    }
    thread = std::thread([this] { http.listen_after_bind(); });
    while (!http.is_running()) std::this_thread::yield();  // stop() before that would not stop it
  }
  ~State() {
    serve([](int) { return 503; });
    http.stop();
    thread.join();
  }
  httplib::Server http;
  std::thread thread;
  int port = 0;
  std::mutex mutex;  // guards what follows
  std::condition_variable released;
  std::function<int(int)> statusFor = [](int) { return 503; };
  int requests = 0;
  int generation = 0;  // each serve() moves it on, which releases stalled requests
};

State& state() {
  static State instance;
  return instance;
}

}  // namespace

int port() {
  return state().port;
}

void serve(std::function<int(int)> statusFor) {
  State& s = state();
  std::lock_guard lock(s.mutex);
  s.statusFor = std::move(statusFor);
  s.requests = 0;
  ++s.generation;
  s.released.notify_all();
}

int requests() {
  State& s = state();
  std::lock_guard lock(s.mutex);
  return s.requests;
}

}  // namespace kestravine::testing::server
