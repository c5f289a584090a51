#include "support/test_server.h"

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>

namespace kestravine::testing {

struct TestServer::State {
  httplib::Server http;
  std::thread thread;
  std::mutex mutex;
  std::condition_variable released;
  std::function<int(int)> statusFor = [](int) { return 503; };  // guarded by mutex
  int requests = 0;                                             // guarded by mutex
  int otherRequests = 0;                                        // guarded by mutex
  int generation = 0;  // guarded by mutex; serve() moves it on, which releases stalled requests
};

TestServer::TestServer() : state_(new State) {
  State& s = *state_;
  s.http.Get("/home/", [&s](const httplib::Request&, httplib::Response& response) {
    std::unique_lock lock(s.mutex);
    const int status = s.statusFor(++s.requests);
    if (status == 0) {
      const int generation = s.generation;
      s.released.wait_for(lock, std::chrono::seconds(10),
                          [&] { return s.generation != generation; });
      response.status = 503;
      return;
    }
    response.status = status;
    if (status >= 300 && status < 400) response.set_header("Location", "/elsewhere/");
  });
  s.http.set_error_handler([&s](const httplib::Request& request, httplib::Response& response) {
    std::lock_guard lock(s.mutex);
    if (request.path != "/home/") ++s.otherRequests;
    response.status = request.path == "/home/" ? response.status : 404;
  });
  // A port the probe reaches as 5199 + offset, with the offset a valid one (0 to 19999).
  std::mt19937 random(std::random_device{}());
  for (int tries = 0; tries < 200 && port_ == 0; ++tries) {
    const int port = 5199 + static_cast<int>(random() % 20000);
    if (s.http.bind_to_port("127.0.0.1", port)) port_ = port;
  }
  if (port_ == 0) {
    std::fputs("no free port between 5199 and 25198\n", stderr);
    std::abort();
  }
  s.thread = std::thread([&s] { s.http.listen_after_bind(); });
  // stop() before the loop has begun would leave it running for good.
  while (!s.http.is_running()) std::this_thread::yield();
}

TestServer::~TestServer() {
  serve([](int) { return 503; });
  state_->http.stop();
  state_->thread.join();
  delete state_;
}

void TestServer::serve(std::function<int(int)> statusFor) {
  std::lock_guard lock(state_->mutex);
  state_->statusFor = std::move(statusFor);
  state_->requests = 0;
  state_->otherRequests = 0;
  ++state_->generation;
  state_->released.notify_all();
}

int TestServer::requests() const {
  std::lock_guard lock(state_->mutex);
  return state_->requests;
}

int TestServer::otherRequests() const {
  std::lock_guard lock(state_->mutex);
  return state_->otherRequests;
}

TestServer& server() {
  static TestServer instance;
  return instance;
}

}  // namespace kestravine::testing
