#include "model/launch_failure.h"

#include <cerrno>

#include "system/system_calls.h"

namespace kestravine::launch_failure {

namespace {

// The reason in the user's words where the cause is a limit of the machine; the system's own
// message otherwise.
std::string reason(int error) {
  switch (error) {
    case EAGAIN:
      return "系统不让再开新的进程（EAGAIN）";
    case EMFILE:
      return "这个程序能同时打开的文件已经用完了（EMFILE）";
    case ENFILE:
      return "整个系统能同时打开的文件已经用完了（ENFILE）";
    case ENOMEM:
      return "内存不够了（ENOMEM）";
    default:
      return system_calls::describeError(error);
  }
}

std::string advice(int error) {
  if (error == EMFILE) return "调高能同时打开的文件数（ulimit -n）后再试一次。";
  if (error == EAGAIN || error == ENFILE || error == ENOMEM)
    return "关掉一些程序后再试一次；不行就把下面的详情发给我。";
  return "再试一次；不行就把下面的详情发给我。";
}

}  // namespace

std::string text(Step step, int error) {
  const char* what = step == Step::install ? "没能开始安装：" : "没能启动Varnholt的服务：";
  return what + reason(error) + "。" + advice(error);
}

}  // namespace kestravine::launch_failure
