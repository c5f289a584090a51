#include "support/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace kestravine::testing {

HttpServer::HttpServer() {
  std::mt19937 random(static_cast<unsigned>(getpid()));
  for (int tries = 0; tries < 200 && fd_ < 0; ++tries) {
    bindPort(5199 + static_cast<int>(random() % 20000));
  }
  if (fd_ < 0) {
    std::fputs("no free port between 5199 and 25198\n", stderr);
    std::abort();
  }
}

HttpServer::~HttpServer() {
  stop();
  if (fd_ >= 0) close(fd_);
}

void HttpServer::bindPort(int port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return;
  }
  fd_ = fd;
  port_ = port;
}

void HttpServer::serve(std::function<int(int)> statusFor) {
  stop();
  statusFor_ = std::move(statusFor);
  requests_ = 0;
  listen(fd_, 16);
  thread_ = std::thread([this] { answer(); });
}

void HttpServer::answer() {
  for (;;) {
    int connection = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return;  // stop() shut the socket down
    std::string request;
    char buffer[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
      ssize_t n = read(connection, buffer, sizeof buffer);
      if (n <= 0) break;
      request.append(buffer, static_cast<size_t>(n));
    }
    int status = statusFor_(++requests_);
    std::string response = "HTTP/1.1 " + std::to_string(status) +
                           " Test\r\nContent-Length: 0\r\nLocation: /elsewhere/\r\n"
                           "Connection: close\r\n\r\n";
    (void)!write(connection, response.data(), response.size());
    close(connection);
  }
}

void HttpServer::stop() {
  if (!thread_.joinable()) return;
  shutdown(fd_, SHUT_RDWR);
  thread_.join();
  // A socket that has listened cannot stop listening: bind the same port afresh, unlistened.
  close(fd_);
  fd_ = -1;
  const int port = port_;
  for (int tries = 0; tries < 100 && fd_ < 0; ++tries) bindPort(port);
  if (fd_ < 0) {
    std::fputs("lost the test port\n", stderr);
    std::abort();
  }
}

HttpServer& server() {
  static HttpServer instance;
  return instance;
}

}  // namespace kestravine::testing
