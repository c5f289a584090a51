#include "support/held_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace kestravine::testing {

HeldPort::HeldPort(int port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  // The connections an earlier test's answers left in TIME_WAIT must not keep it from binding.
  const int reuse = 1;
  setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  sockaddr_in address{
      AF_INET, htons(static_cast<std::uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t length = sizeof address;
  bound_ = bind(fd_, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
           getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) == 0;
  port_ = ntohs(address.sin_port);
}

HeldPort::~HeldPort() {
  shutdown(fd_, SHUT_RDWR);
  if (answering_.joinable()) answering_.join();
  close(fd_);
}

void HeldPort::listenSilently() {
  if (!listening_) listen(fd_, 16);
  listening_ = true;
}

void HeldPort::answer(int status) {
  status_ = status;
  listenSilently();
  if (!answering_.joinable()) answering_ = std::thread([this] { serve(); });
}

void HeldPort::hangUp() {
  answer(0);
}

void HeldPort::serve() {
  for (int c; (c = accept(fd_, nullptr, nullptr)) >= 0; close(c)) {
    ++taken_;
    const int status = status_;
    char request[4096];
    if (status == 0 || read(c, request, sizeof request) <= 0) continue;
    const std::string reply = "HTTP/1.1 " + std::to_string(status) +
                              " X\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    if (write(c, reply.data(), reply.size()) < 0) continue;
  }
}

}  // namespace kestravine::testing
