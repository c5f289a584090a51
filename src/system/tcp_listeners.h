#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestravine {

// The listening TCP sockets of this network namespace as /proc/net/tcp and /proc/net/tcp6 list
// them, and which of them answer a connection to 127.0.0.1. Stateless functions; any thread.
namespace tcp_listeners {

struct Listener {
  // The bound address as sixteen bytes in network order; an IPv4 address is given as its
  // IPv4-mapped form (::ffff:a.b.c.d), and `ipv6` tells which table it came from.
  std::array<std::uint8_t, 16> address{};
  bool ipv6 = false;
  int port = 0;
  uid_t uid = 0;    // the user who made the socket
  ino_t inode = 0;  // names the socket among a process's descriptors ("socket:[inode]")

  // "127.0.0.1", "0.0.0.0", "::", "::ffff:127.0.0.1", ...
  std::string addressText() const;
  friend bool operator==(const Listener&, const Listener&) = default;
};

// The listening sockets in the text of /proc/net/tcp (`ipv6` false) or /proc/net/tcp6 (true).
// Lines that are not a listening socket, or that do not parse, are skipped.
std::vector<Listener> parse(std::string_view table, bool ipv6);

// How a listener takes a connection to 127.0.0.1 on its port, the kernel's preference in
// descending order: bound to 127.0.0.1 itself, to its IPv4-mapped form, to every IPv4 address,
// to every address of both families (an IPv6 wildcard may have been made IPv6-only, which the
// tables do not tell). `never`: another address (::1, 127.0.0.2, a network card's).
enum class Reach { never, dualStackWildcard, ipv4Wildcard, mappedLoopback, loopback };
Reach reachFromLoopback(const Listener& listener);

// Of `listeners`, those on `port` with the best reach; several when they share the port through
// SO_REUSEPORT (all of one user, as the kernel requires). Empty if none can take a connection.
std::vector<Listener> answeringLoopback(const std::vector<Listener>& listeners, int port);

// Both tables as they are now, from the kernel's socket diagnostics, or where those cannot be
// had from /proc/net/tcp and tcp6; what cannot be read counts as empty.
std::vector<Listener> read();

}  // namespace tcp_listeners
}  // namespace kestravine
