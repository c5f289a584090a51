#pragma once

#include <atomic>
#include <thread>

namespace kestravine::testing {

// A TCP port on 127.0.0.1 that the test holds: bound and refusing every connection until the
// test makes it listen; then silent (connections wait in its queue unanswered), answering each
// request with an HTTP status, or hanging up without an answer.
//
// Threading: the test thread; answers come from a thread of its own.
class HeldPort {
 public:
  // `port` 0 takes any free port. bound() tells whether the port could be had.
  explicit HeldPort(int port = 0);
  ~HeldPort();
  HeldPort(const HeldPort&) = delete;
  HeldPort& operator=(const HeldPort&) = delete;

  bool bound() const { return bound_; }
  int port() const { return port_; }
  // From now on connections are taken; none is answered.
  void listenSilently();
  // From now on every request is answered with `status` (and "Connection: close").
  void answer(int status);
  // From now on every connection is closed as soon as it is taken.
  void hangUp();
  // How many connections were taken since answer() or hangUp().
  int taken() const { return taken_; }

 private:
  void serve();

  int fd_ = -1;
  int port_ = 0;
  bool bound_ = false;
  bool listening_ = false;
  std::atomic<int> status_{0};  // 0: hang up
  std::atomic<int> taken_{0};
  std::thread answering_;
};

}  // namespace kestravine::testing
