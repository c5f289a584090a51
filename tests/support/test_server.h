#pragma once

#include <functional>

namespace kestravine::testing {

// The local web application as the probe sees it: an HTTP server (cpp-httplib) on 127.0.0.1,
// on a port of this test process's own in the launcher's range, listening for the whole
// process. GET /home/ gets the status a test scripts; any other path gets 404 and is counted
// apart, so a probe that asks the wrong address fails.
//
// Threading: serve() and the counters from the test thread; requests are answered on the
// server's own threads.
class TestServer {
 public:
  TestServer();
  ~TestServer();

  int port() const { return port_; }
  // From now on the n-th request for /home/ (from 1) is answered with statusFor(n); 0 stalls it
  // for 10 s, longer than a probe may wait. Resets the counters and releases stalled requests.
  void serve(std::function<int(int)> statusFor);
  // Not ready: every request for /home/ gets 503.
  void refuse() {
    serve([](int) { return 503; });
  }
  int requests() const;
  int otherRequests() const;

 private:
  struct State;
  State* state_;
  int port_ = 0;
};

// The server of this test process, made on first use.
TestServer& server();

}  // namespace kestravine::testing
