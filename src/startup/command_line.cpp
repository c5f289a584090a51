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
    "没有桌面时（例如通过 SSH），在终端里运行：回车键安装、更新或重试，s 先打开现在的版本，\n"
    "Esc 或 Ctrl-C 取消，q 退出；打不开浏览器时把地址单独打印一行。\n"
    "\n"
    "选项：\n"
    "  -h, --help        显示这段帮助，然后退出\n"
    "  --version         显示版本，然后退出\n"
    "  --terminal        即使有桌面也在终端里运行\n"
    "  -platform 名称    使用指定的 Qt 平台（例如 wayland、xcb）\n"
    "Qt 的其他标准选项同样有效；其余参数会被忽略。\n"
    "\n"
    "环境变量：\n"
    "  KESTRAVINE_HOME                   产品目录（默认 ~/.kestravine）\n"
    "  ZORVEL_PORT_OFFSET                0 到 19999，加在端口 5199 上\n"
    "  KESTRAVINE_NO_OPEN=1              不打开浏览器（成功后照样退出）\n"
    "  KESTRAVINE_LAUNCHER_AUTOSTART=1   窗口出现 0.3 秒后自动开始安装\n"
    "  KESTRAVINE_LAUNCHER_SHOT=文件     4 秒后把窗口内容存成 PNG 图片，然后退出\n"
    "  KESTRAVINE_SKIP_ATTEST            原样传给安装脚本\n"
    "  NO_COLOR                          终端里不用颜色\n"
    "\n"
    "没有终端也没有桌面、又设了 KESTRAVINE_LAUNCHER_AUTOSTART=1 时（脚本里），自动安装或启动，\n"
    "把输出逐行写到标准输出。\n"
    "\n"
    "退出码：\n"
    "  0  Varnholt 已经应答（打开了浏览器或给出了地址），或者窗口被关掉\n"
    "  1  失败，或者没有可用的桌面和终端\n"
    "  2  在终端外被取消或中止（Ctrl-C、SIGTERM），Varnholt 还没有应答\n";

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
