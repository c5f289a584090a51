#include "terminal/terminal_view.h"

#include <signal.h>
#include <unistd.h>

#include "model/machine_words.h"
#include "platform/platform.h"
#include "system/system_calls.h"
#include "terminal/terminal_session.h"
#include "text/display_width.h"

namespace kestravine {

namespace {

constexpr const char* kBold = "1";
constexpr const char* kRed = "31";
constexpr const char* kDim = "2";
constexpr char kReturn = '\r';
constexpr char kEscape = '\x1b';
constexpr char kCtrlC = '\x03';

}  // namespace

TerminalView::TerminalView(std::shared_ptr<Model> model, Style style, std::function<void()> leave)
    : model_(std::move(model)), style_(style), leave_(std::move(leave)) {
  listener_ = model_->addListener([this](Model::Field field) { changed(field); });
}

TerminalView::~TerminalView() {
  model_->removeListener(listener_);
}

TerminalView::Outcome TerminalView::outcome() const {
  if (model_->opened()) return Outcome::answered;
  if (model_->phase() != Model::Phase::failed) return Outcome::none;
  return cancelled_ ? Outcome::cancelled : Outcome::failed;
}

void TerminalView::key(char key) {
  const Model::Phase phase = model_->phase();
  if ((key == kEscape || key == kCtrlC) && model_->canCancel()) {
    cancelled_ = true;
    return model_->cancel();
  }
  if (key == 'q' || key == 'Q' || key == kCtrlC) return leave();
  if (key == '\n') key = kReturn;
  if (key == kReturn && phase == Model::Phase::ready) return model_->install();
  if (key == kReturn && phase == Model::Phase::failed) {
    cancelled_ = false;
    return model_->retry();
  }
  if ((key == 's' || key == 'S') && phase == Model::Phase::ready &&
      model_->offer() == Model::Offer::update)
    model_->startInstalled();
}

void TerminalView::signalled(int signal) {
  if (signal == SIGINT && !style_.keys && model_->canCancel()) {
    cancelled_ = true;
    model_->cancel();
    return leave();
  }
  leave();
}

void TerminalView::leave() {
  if (leaving_) return;
  leaving_ = true;
  // As the window's close: a running command is let finish, its output read and dropped.
  if (model_->runs()) line("正在等运行中的命令结束，结束后退出。", kDim);
  leave_();
}

void TerminalView::resized() {
  if (!statusShown_.empty()) drawStatus();
}

void TerminalView::showAddress(const std::string& url) {
  clearStatus();
  line(url);
}

void TerminalView::finish() {
  if (!statusShown_.empty() && !style_.plainLines) write("\n");
  statusShown_.clear();
  std::fflush(stdout);
}

void TerminalView::changed(Model::Field field) {
  switch (field) {
    case Model::Field::phase:
    case Model::Field::offer:
      return arrange();
    case Model::Field::lines:
      return printNewLines();
    case Model::Field::status:
      if (model_->phase() == Model::Phase::working) drawStatus();
      return;
    case Model::Field::closed:
      if (!leaving_ && model_->runs()) line("（等Varnholt的启动命令结束后退出）", kDim);
      return;
    default:
      return;
  }
}

void TerminalView::arrange() {
  const Model& m = *model_;
  if (m.phase() == Model::Phase::checking) return;
  clearStatus();
  if (m.headline() != headlineShown_) {
    headlineShown_ = m.headline();
    line(headlineShown_, kBold);
  }
  switch (m.phase()) {
    case Model::Phase::ready:
      if (m.offer() == Model::Offer::update) {
        line(m.status());
        if (style_.keys) line("按回车键更新并打开；按 s 先打开现在的版本；按 q 退出。", kDim);
      } else {
        line(machineTexts().description);
        if (style_.keys) line("按回车键安装并打开；按 q 退出。", kDim);
      }
      return;
    case Model::Phase::working:
      printNewLines();
      if (style_.keys) line("按 Esc 或 Ctrl-C 可以取消。", kDim);
      return drawStatus();
    case Model::Phase::failed:
      printNewLines();
      line(m.failure(), kRed);
      // Where no key can be pressed, nothing can come after a failure.
      if (!style_.keys) return leave();
      line("按回车键再试一次；按 q 退出。", kDim);
      return;
    case Model::Phase::checking:
      return;
  }
}

void TerminalView::printNewLines() {
  const auto& lines = model_->lines();
  const std::uint64_t first = model_->linesAppended() - lines.size();
  if (printed_ < first) printed_ = first;
  if (printed_ == model_->linesAppended()) return;
  const bool hadStatus = !statusShown_.empty();
  clearStatus();
  for (; printed_ < model_->linesAppended(); ++printed_) line(lines[printed_ - first]);
  if (hadStatus) drawStatus();
}

void TerminalView::line(const std::string& text, const char* sgr) {
  const bool hadStatus = !statusShown_.empty();
  clearStatus();
  if (sgr != nullptr && style_.colour)
    write(std::string("\x1b[") + sgr + "m" + text + "\x1b[0m\n");
  else
    write(text + "\n");
  if (hadStatus) drawStatus();
}

void TerminalView::clearStatus() {
  if (statusShown_.empty() || style_.plainLines) return;
  write("\r\x1b[K");
  statusShown_.clear();
}

void TerminalView::drawStatus() {
  const std::string& status = model_->status();
  if (style_.plainLines) {
    // Each change once, unless it only repeats the output line just printed.
    const auto& lines = model_->lines();
    if (status.empty() || status == lastPlainStatus_ || (!lines.empty() && status == lines.back()))
      return;
    lastPlainStatus_ = status;
    return write(status + "\n");
  }
  // The command's latest line is already on the screen above.
  const auto& lines = model_->lines();
  if (status.empty() || (!lines.empty() && status == lines.back())) return clearStatus();
  // One column short of the width: a character in the last column would wrap on some terminals.
  const std::string shown = display_width::fit(status, TerminalSession::width() - 1);
  write("\r\x1b[K" + (style_.colour ? "\x1b[2m" + shown + "\x1b[0m" : shown));
  statusShown_ = status;
}

void TerminalView::write(const std::string& bytes) {
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  // Once per batch of changes, not once per line of a flood.
  if (flushPending_) return;
  flushPending_ = true;
  platform().post([this] {
    flushPending_ = false;
    std::fflush(stdout);
  });
}

}  // namespace kestravine
