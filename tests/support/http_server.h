#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace kestravine::testing {

// A loopback HTTP server on a port reserved for the whole test process. While not serving, the
// port stays bound but does not listen, so connections to it are refused and nobody else can
// take it.
//
// Threading: serve() and stop() from the test thread; requests are answered on a thread of its
// own.
class HttpServer {
 public:
  // Binds a free port in the launcher's range (5199 to 25198).
  HttpServer();
  ~HttpServer();

  int port() const { return port_; }
  // Answers every request with the status that `statusFor(n)` gives for the n-th (from 1).
  void serve(std::function<int(int)> statusFor);
  // Stops answering; connections are refused again.
  void stop();
  int requests() const { return requests_.load(); }

 private:
  void bindPort(int port);
  void answer();

  int fd_ = -1;
  int port_ = 0;
  std::function<int(int)> statusFor_;
  std::atomic<int> requests_{0};
  std::thread thread_;
};

// The server of this test process.
HttpServer& server();

}  // namespace kestravine::testing
