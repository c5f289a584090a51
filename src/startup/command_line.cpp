#include "startup/command_line.h"

#include <cstdio>
#include <string_view>

namespace kestravine {

namespace {

constexpr const char* kHelp =
    "用法：kestravine-launcher [选项]\n"
    "\n"
    "在这台电脑上安装并打开 Varnholt。还没有安装时，窗口提供安装；已经安装时，启动本地服务。\n"
    "服务就绪后，在浏览器中打开 http://127.0.0.1:5199/home/，然后退出。\n"
    "\n"
    "选项：\n"
    "  -h, --help        显示这段帮助，然后退出\n"
    "  --version         显示版本，然后退出\n"
    "  -platform 名称    使用指定的 Qt 平台（例如 wayland、xcb）\n"
    "Qt 的其他标准选项同样有效；其余参数会被忽略。\n"
    "\n"
    "环境变量：\n"
    "  KESTRAVINE_HOME                   产品目录（默认 ~/.kestravine）\n"
    "  ZORVEL_PORT_OFFSET                0 到 19999，加在端口 5199 上\n"
    "  KESTRAVINE_NO_OPEN=1              不打开浏览器（成功后照样退出）\n"
    "  KESTRAVINE_LAUNCHER_AUTOSTART=1   窗口出现 0.3 秒后自动开始安装\n"
    "  KESTRAVINE_LAUNCHER_SHOT=文件     4 秒后把窗口内容存成 PNG 图片，然后退出\n"
    "  KESTRAVINE_SKIP_ATTEST            原样传给安装脚本\n";

}  // namespace

std::optional<int> answerCommandLine(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const char* answer = nullptr;
    if (arg == "--help" || arg == "-h") {
      answer = kHelp;
    } else if (arg == "--version") {
      answer = "kestravine-launcher " KESTRAVINE_VERSION "\n";
    } else {
      continue;
    }
    // A write that fails (stdout closed, disk full) must not pass for an answer.
    const bool written = std::fputs(answer, stdout) >= 0 && std::fflush(stdout) == 0;
    return written ? 0 : 1;
  }
  return std::nullopt;
}

}  // namespace kestravine
