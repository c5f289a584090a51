#include "system/tcp_listeners.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

namespace kestravine {
namespace {

using tcp_listeners::Listener;

tcp_listeners::Listener listener(const char* address, int port, bool ipv6) {
  Listener l;
  l.ipv6 = ipv6;
  l.port = port;
  if (ipv6) {
    inet_pton(AF_INET6, address, l.address.data());
  } else {
    l.address[10] = l.address[11] = 0xff;
    inet_pton(AF_INET, address, l.address.data() + 12);
  }
  return l;
}

// The tables print each 32-bit word of an address as the machine reads it: these lines are a
// little-endian machine's.
TEST(TcpListeners, ReadsListeningSocketsFromBothTables) {
  if (htonl(1) == 1) GTEST_SKIP() << "the sample lines are those of a little-endian machine";
  const std::string tcp =
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  "
      "timeout inode\n"
      "   0: 0100007F:1450 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 "
      "4242 1 0000000000000000 100 0 0 10 0\n"
      "   1: 00000000:0016 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 "
      "17 1\n"
      "   2: 0100007F:1450 0100007F:C350 01 00000000:00000000 00:00000000 00000000  1000        0 "
      "99 1\n"                                             // a connection, not a listener
      "   3: zz:1450 00000000:0000 0A 0 0 0 1000 0 5 1\n"  // damaged
      "   4: 0100007F:1450 00000000:0000 0A\n";            // cut short
  const std::string tcp6 =
      "  sl  local_address                         remote_address                        st\n"
      "   0: 00000000000000000000000000000000:1450 00000000000000000000000000000000:0000 0A "
      "00000000:00000000 00:00000000 00000000  1001        0 7 1\n"
      "   1: 0000000000000000FFFF00000100007F:1451 00000000000000000000000000000000:0000 0A "
      "00000000:00000000 00:00000000 00000000  1001        0 8 1\n"
      "   2: 00000000000000000000000001000000:1452 00000000000000000000000000000000:0000 0A "
      "00000000:00000000 00:00000000 00000000  1001        0 9 1\n";
  const auto v4 = tcp_listeners::parse(tcp, false);
  ASSERT_EQ(v4.size(), 2u);
  EXPECT_EQ(v4[0].addressText(), "127.0.0.1");
  EXPECT_EQ(v4[0].port, 5200);
  EXPECT_EQ(v4[0].uid, 1000u);
  EXPECT_EQ(v4[0].inode, 4242u);
  EXPECT_EQ(v4[1].addressText(), "0.0.0.0");
  EXPECT_EQ(v4[1].port, 22);
  const auto v6 = tcp_listeners::parse(tcp6, true);
  ASSERT_EQ(v6.size(), 3u);
  EXPECT_EQ(v6[0].addressText(), "::");
  EXPECT_EQ(v6[1].addressText(), "::ffff:127.0.0.1");
  EXPECT_EQ(v6[1].port, 5201);
  EXPECT_EQ(v6[2].addressText(), "::1");
  EXPECT_EQ(v6[2].uid, 1001u);
  EXPECT_TRUE(tcp_listeners::parse("", false).empty());
}

// The kernel hands a connection to 127.0.0.1 to the most specific socket: its own address over
// its IPv4-mapped form over the IPv4 wildcard over the dual-stack wildcard; ::1, other loopback
// addresses and other ports never take it. Sockets sharing a port all answer.
TEST(TcpListeners, TheMostSpecificSocketAnswersTheLoopbackAddress) {
  const Listener loopback = listener("127.0.0.1", 80, false);
  const Listener mapped = listener("::ffff:127.0.0.1", 80, true);
  const Listener any4 = listener("0.0.0.0", 80, false);
  const Listener any6 = listener("::", 80, true);
  const Listener mappedAny = listener("::ffff:0.0.0.0", 80, true);
  const Listener v6loopback = listener("::1", 80, true);
  const Listener otherLoopback = listener("127.0.0.2", 80, false);
  const Listener otherPort = listener("127.0.0.1", 81, false);
  Listener shared = loopback;
  shared.inode = 2;
  using List = std::vector<Listener>;
  const std::pair<List, List> table[] = {
      {{any6, any4, mapped, loopback, otherPort}, {loopback}},
      {{any6, any4, mapped}, {mapped}},
      {{any6, any4}, {any4}},
      {{any6, mappedAny}, {mappedAny}},
      {{any6, v6loopback}, {any6}},
      {{v6loopback, otherLoopback, otherPort}, {}},
      {{loopback, shared, any4}, {loopback, shared}},
      {{}, {}},
  };
  for (const auto& [listeners, answering] : table)
    EXPECT_EQ(tcp_listeners::answeringLoopback(listeners, 80), answering) << listeners.size();
}

}  // namespace
}  // namespace kestravine
