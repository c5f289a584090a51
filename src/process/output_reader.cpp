#include "process/output_reader.h"

#include <poll.h>
#include <unistd.h>

#include <vector>

#include "platform/platform.h"
#include "system/system_calls.h"
#include "text/line_splitter.h"

namespace kestravine {

namespace {

constexpr std::size_t kChunkSize = 64 * 1024;

}  // namespace

void readOutput(UniqueFd pipe, std::shared_ptr<LineDelivery> delivery,
                std::shared_ptr<ReportsInFlight> inFlight,
                std::shared_ptr<OutputProgress> progress) {
  LineSplitter splitter;
  LineBatch lines;
  const LineSplitter::LineSink collect = [&lines](std::string_view line) {
    lines.text += line;
    lines.ends.push_back(lines.text.size());
  };
  std::vector<char> buffer(kChunkSize);
  // Waits for output before taking it, so that the progress never counts a reader blocked in
  // read() as holding bytes.
  pollfd readable{pipe.get(), POLLIN, 0};
  while (system_calls::retryOnInterrupt([&] { return ::poll(&readable, 1, -1); }) > 0) {
    progress->taking();
    const ssize_t n = system_calls::retryOnInterrupt(
        [&] { return ::read(pipe.get(), buffer.data(), buffer.size()); });
    if (n <= 0) break;
    splitter.feed(std::string_view(buffer.data(), static_cast<std::size_t>(n)), collect);
    delivery->post(lines);
    progress->taken(static_cast<std::size_t>(n));
  }
  splitter.finish(collect);
  delivery->post(lines);
  progress->ended();
  platform().post([inFlight = std::move(inFlight)] {});
}

}  // namespace kestravine
