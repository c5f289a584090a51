#include "model/port_report.h"

#include <algorithm>
#include <fstream>

#include "text/plain.h"
#include "text/utf8_decoder.h"

namespace kestravine::port_report {

namespace {

constexpr std::streamoff kTailBytes = 64 * 1024;

std::string portText(int port) {
  return "端口 " + std::to_string(port);
}

std::string processText(const PortOwner& owner) {
  return owner.name + "（进程 " + std::to_string(owner.pid) + "）";
}

std::string userText(const PortOwner& owner) {
  return "另一个用户（" + (owner.name.empty() ? "uid " + std::to_string(owner.uid) : owner.name) +
         "）的程序";
}

}  // namespace

std::optional<std::string> refusal(int port, const PortOwner& owner) {
  constexpr const char* kWayOut = "，或者换一个 ZORVEL_PORT_OFFSET 再试。";
  if (owner.kind == PortOwner::Kind::foreign)
    return portText(port) + " 被 " + processText(owner) + "占着，它不是Varnholt。关掉它" + kWayOut;
  if (owner.kind == PortOwner::Kind::otherUser)
    return portText(port) + " 被" + userText(owner) + "占着，它不是Varnholt。请对方关掉它" +
           kWayOut;
  return std::nullopt;
}

std::string seen(int port, const PortOwner& owner, bool answered) {
  const std::string listening = portText(port) + " 上在听的是";
  const std::string unsure = "，分不清是不是Varnholt。";
  switch (owner.kind) {
    case PortOwner::Kind::nobody:
      return answered ? portText(port) + " 有回应，但看不到在听的程序（可能是转发过来的）" + unsure
                      : portText(port) + " 上没有程序在听。";
    case PortOwner::Kind::product:
      return listening + " " + processText(owner) + "，是这里的Varnholt。";
    case PortOwner::Kind::foreign:
      return listening + " " + processText(owner) + "，不是Varnholt。";
    case PortOwner::Kind::otherUser:
      return listening + userText(owner) + "，不是Varnholt。";
    case PortOwner::Kind::unknown:
      break;
  }
  return owner.uid == 0 ? listening + "系统（root）的程序" + unsure
                        : portText(port) + " 上在听的程序看不到（可能在容器里）" + unsure;
}

std::string startStatus(std::int32_t status) {
  return "启动命令没有成功，退出码 " + std::to_string(status) + "。";
}

std::vector<std::string> tail(const std::string& path, std::size_t count) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return {};
  file.seekg(0, std::ios::end);
  const std::streamoff size = file.tellg();
  const std::streamoff from = std::max<std::streamoff>(0, size - kTailBytes);
  file.seekg(from);
  std::string bytes(static_cast<std::size_t>(std::max<std::streamoff>(0, size - from)), '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(0, file.gcount())));

  std::vector<std::string> lines;
  std::size_t end = bytes.size();
  // Backwards from the end; a line cut by the 64 KiB window is left out.
  while (end > 0 && lines.size() < count) {
    const std::size_t newline = bytes.rfind('\n', end - 1);
    if (newline == std::string::npos && from > 0) break;
    const std::size_t begin = newline == std::string::npos ? 0 : newline + 1;
    const std::size_t stop = end > begin && bytes[end - 1] == '\r' ? end - 1 : end;  // CR LF
    std::string text;
    Utf8Decoder decoder;
    decoder.decode(text, std::string_view(bytes).substr(begin, stop - begin));
    decoder.finish(text);
    std::string line = plain(text);
    if (!line.empty()) lines.push_back(std::move(line));
    end = newline == std::string::npos ? 0 : newline;
  }
  if (lines.empty()) return {};
  lines.push_back("日志的最后几行：");
  std::reverse(lines.begin(), lines.end());
  return lines;
}

}  // namespace kestravine::port_report
