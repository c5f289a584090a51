#include "system/tcp_listeners.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

#include "system/system_calls.h"
#include "system/unique_fd.h"
#include "text/decimal.h"

namespace kestravine::tcp_listeners {

namespace {

constexpr std::string_view kListenState = "0A";
constexpr std::array<std::uint8_t, 12> kMappedPrefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

std::vector<std::string_view> words(std::string_view line) {
  std::vector<std::string_view> out;
  for (;;) {
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return out;
    line.remove_prefix(begin);
    const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
    out.push_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

template <typename T>
bool parseHex(std::string_view text, T& value) {
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, value, 16);
  return ec == std::errc() && ptr == end && !text.empty();
}

// The kernel prints each 32-bit word of the address as the number the machine reads from its
// bytes in network order; copying that number back to memory gives those bytes again.
bool parseAddress(std::string_view hex, bool ipv6, std::array<std::uint8_t, 16>& address) {
  const std::size_t words32 = ipv6 ? 4 : 1;
  if (hex.size() != 8 * words32) return false;
  std::uint8_t* out = ipv6 ? address.data() : address.data() + 12;
  if (!ipv6) std::copy(kMappedPrefix.begin(), kMappedPrefix.end(), address.begin());
  for (std::size_t i = 0; i < words32; ++i) {
    std::uint32_t word = 0;
    if (!parseHex(hex.substr(8 * i, 8), word)) return false;
    std::memcpy(out + 4 * i, &word, 4);
  }
  return true;
}

bool isMapped(const std::array<std::uint8_t, 16>& address) {
  return std::equal(kMappedPrefix.begin(), kMappedPrefix.end(), address.begin());
}

bool lastFourAre(const std::array<std::uint8_t, 16>& address, std::array<std::uint8_t, 4> v4) {
  return std::equal(v4.begin(), v4.end(), address.begin() + 12);
}

// The listening sockets of one family as the kernel's socket diagnostics dump them. Asking for
// listeners alone walks only the kernel's listening table: /proc/net/tcp walks every connection
// too, which takes milliseconds on a machine with a large connection table. None where the
// dump cannot be had (no netlink in a sandbox), so that /proc is read instead.
std::optional<std::vector<Listener>> dumpListening(int family) {
  const UniqueFd fd(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!fd) return std::nullopt;
  struct {
    nlmsghdr header;
    inet_diag_req_v2 request;
  } ask{};
  ask.header.nlmsg_len = sizeof ask;
  ask.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  ask.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  ask.request.sdiag_family = static_cast<std::uint8_t>(family);
  ask.request.sdiag_protocol = IPPROTO_TCP;
  ask.request.idiag_states = 1U << TCP_LISTEN;
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (::sendto(fd.get(), &ask, sizeof ask, 0, reinterpret_cast<sockaddr*>(&kernel),
               sizeof kernel) != static_cast<ssize_t>(sizeof ask))
    return std::nullopt;
  std::vector<Listener> found;
  alignas(nlmsghdr) char buffer[32 * 1024];
  for (;;) {
    const ssize_t got =
        system_calls::retryOnInterrupt([&] { return ::recv(fd.get(), buffer, sizeof buffer, 0); });
    if (got <= 0) return std::nullopt;
    int left = static_cast<int>(got);
    for (auto* h = reinterpret_cast<nlmsghdr*>(buffer); NLMSG_OK(h, left);
         h = NLMSG_NEXT(h, left)) {
      if (h->nlmsg_type == NLMSG_DONE) return found;
      if (h->nlmsg_type == NLMSG_ERROR) return std::nullopt;
      if (h->nlmsg_type != SOCK_DIAG_BY_FAMILY ||
          h->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg)))
        continue;
      const auto* message = static_cast<const inet_diag_msg*>(NLMSG_DATA(h));
      Listener listener;
      listener.ipv6 = family == AF_INET6;
      listener.port = ntohs(message->id.idiag_sport);
      listener.uid = message->idiag_uid;
      listener.inode = message->idiag_inode;
      if (listener.ipv6) {
        std::memcpy(listener.address.data(), message->id.idiag_src, 16);
      } else {
        std::copy(kMappedPrefix.begin(), kMappedPrefix.end(), listener.address.begin());
        std::memcpy(listener.address.data() + 12, message->id.idiag_src, 4);
      }
      found.push_back(listener);
    }
  }
}

}  // namespace

std::string Listener::addressText() const {
  char text[INET6_ADDRSTRLEN] = {};
  if (!ipv6)
    ::inet_ntop(AF_INET, address.data() + 12, text, sizeof text);
  else
    ::inet_ntop(AF_INET6, address.data(), text, sizeof text);
  return text;
}

std::vector<Listener> parse(std::string_view table, bool ipv6) {
  std::vector<Listener> found;
  while (!table.empty()) {
    const std::size_t end = std::min(table.find('\n'), table.size());
    const auto fields = words(table.substr(0, end));
    table.remove_prefix(std::min(end + 1, table.size()));
    // sl, local address, remote address, state, queues, timer, retransmits, uid, timeout, inode
    if (fields.size() < 10 || fields[3] != kListenState) continue;
    const std::string_view local = fields[1];
    const std::size_t colon = local.find(':');
    Listener listener;
    listener.ipv6 = ipv6;
    const auto uid = parseDecimal<uid_t>(fields[7]);
    const auto inode = parseDecimal<ino_t>(fields[9]);
    if (colon == std::string_view::npos || !uid || !inode ||
        !parseAddress(local.substr(0, colon), ipv6, listener.address) ||
        !parseHex(local.substr(colon + 1), listener.port))
      continue;
    listener.uid = *uid;
    listener.inode = *inode;
    found.push_back(listener);
  }
  return found;
}

Reach reachFromLoopback(const Listener& listener) {
  const auto& a = listener.address;
  if (isMapped(a)) {
    if (lastFourAre(a, {127, 0, 0, 1}))
      return listener.ipv6 ? Reach::mappedLoopback : Reach::loopback;
    // ::ffff:0.0.0.0 on an IPv6 socket takes IPv4 only, like 0.0.0.0.
    if (lastFourAre(a, {0, 0, 0, 0})) return Reach::ipv4Wildcard;
    return Reach::never;
  }
  const bool wildcard = std::all_of(a.begin(), a.end(), [](std::uint8_t b) { return b == 0; });
  return listener.ipv6 && wildcard ? Reach::dualStackWildcard : Reach::never;
}

std::vector<Listener> answeringLoopback(const std::vector<Listener>& listeners, int port) {
  Reach best = Reach::never;
  for (const auto& l : listeners)
    if (l.port == port) best = std::max(best, reachFromLoopback(l));
  std::vector<Listener> answering;
  if (best == Reach::never) return answering;
  for (const auto& l : listeners)
    if (l.port == port && reachFromLoopback(l) == best) answering.push_back(l);
  return answering;
}

std::vector<Listener> read() {
  auto all4 = dumpListening(AF_INET);
  auto all6 = all4 ? dumpListening(AF_INET6) : std::nullopt;
  if (all4 && all6) {
    all4->insert(all4->end(), all6->begin(), all6->end());
    return std::move(*all4);
  }
  std::vector<Listener> all = parse(system_calls::readFile("/proc/net/tcp"), false);
  std::vector<Listener> v6 = parse(system_calls::readFile("/proc/net/tcp6"), true);
  all.insert(all.end(), v6.begin(), v6.end());
  return all;
}

}  // namespace kestravine::tcp_listeners
