#include "model/port_report.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace kestravine {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Kind = PortOwner::Kind;

PortOwner owner(Kind kind, std::string name = {}, pid_t pid = -1, uid_t uid = 1000) {
  PortOwner o;
  o.kind = kind;
  o.name = std::move(name);
  o.pid = pid;
  o.uid = uid;
  return o;
}

// Only a stranger is refused: a program of the user that is not the product, or another user's.
// The text names the port and the program or its user, and the ways out.
TEST(PortReport, RefusesOnlyAStrangerNamingItAndTheWayOut) {
  const std::pair<PortOwner, std::optional<std::string>> table[] = {
      {owner(Kind::foreign, "python3", 4242),
       "端口 5199 被 python3（进程 4242）占着，它不是Varnholt。关掉它，或者换一个 "
       "ZORVEL_PORT_OFFSET 再试。"},
      {owner(Kind::otherUser, "bob"),
       "端口 5199 被另一个用户（bob）的程序占着，它不是Varnholt。请对方关掉它，或者换一个 "
       "ZORVEL_PORT_OFFSET 再试。"},
      {owner(Kind::otherUser, "", -1, 1001),
       "端口 5199 被另一个用户（uid 1001）的程序占着，它不是Varnholt。请对方关掉它，或者换一个 "
       "ZORVEL_PORT_OFFSET 再试。"},
      {owner(Kind::product, "node", 7), std::nullopt},
      {owner(Kind::unknown, "", -1, 0), std::nullopt},
      {owner(Kind::nobody), std::nullopt},
  };
  for (const auto& [who, text] : table)
    EXPECT_EQ(port_report::refusal(5199, who), text) << static_cast<int>(who.kind);
}

// The last lines of the services' log, cleaned, from its last 64 KiB only: memory stays bounded
// however large the log, and a line the window cuts is left out rather than shown in part.
TEST(PortReport, GivesTheLastLinesOfTheLogCleaned) {
  const std::string path = std::string(TEST_SCRATCH) + "/monitor.log";
  std::filesystem::create_directories(TEST_SCRATCH);
  const std::string big(70 * 1024, 'x');
  const std::pair<std::optional<std::string>, std::vector<std::string>> table[] = {
      {std::nullopt, {}},
      {"", {}},
      {"\n \n", {}},
      {"a\nb\nc\n", {"日志的最后几行：", "b", "c"}},
      {"a\r\n\x1b[1mb\x1b[0m\r\n\n", {"日志的最后几行：", "a", "b"}},
      {"no line end", {"日志的最后几行：", "no line end"}},
      {"bad \xff byte\n", {"日志的最后几行：", "bad \xef\xbf\xbd byte"}},
      {big + "\nlast\n", {"日志的最后几行：", "last"}},
      {big, {}},
  };
  for (const auto& [text, expected] : table) {
    std::filesystem::remove(path);
    if (text) std::ofstream(path, std::ios::binary) << *text;
    EXPECT_EQ(port_report::tail(path, 2), expected) << text.value_or("(no file)").size();
  }
}

}  // namespace
}  // namespace kestravine
