// The launcher's real window (the real content, model and main queue) while its install script
// floods it: how late a 16 ms timer fires, over 10 s. Run from a layout of its own (bin/ beside
// share/kestravine/ with the flooding install.sh), with KESTRAVINE_LAUNCHER_AUTOSTART=1, by
// bench/lateness.sh. Prints "p50 p99 max" in milliseconds and the number of samples; with an
// argument, writes a PNG of the window content there at the end.
#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <vector>

#include "event_loop/qt_platform.h"
#include "ui/content_view.h"
#include "window/main_window.h"
#include "window/snapshot.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  auto* platform = new kestravine::QtPlatform;
  kestravine::installPlatform(*platform);
  kestravine::MainWindow window;
  window.present();

  constexpr qint64 kPeriodNs = 16'000'000;
  constexpr qint64 kSettleMs = 1000;  // the automatic install starts 0.3 s after the window
  constexpr qint64 kMeasureMs = 10'000;
  QElapsedTimer clock;
  clock.start();
  std::vector<double> late;
  qint64 due = 0;
  QTimer tick;
  tick.setSingleShot(true);
  tick.setTimerType(Qt::PreciseTimer);
  QObject::connect(&tick, &QTimer::timeout, [&] {
    const qint64 now = clock.nsecsElapsed();
    if (now / 1'000'000 >= kSettleMs) late.push_back(static_cast<double>(now - due) / 1e6);
    if (now / 1'000'000 >= kSettleMs + kMeasureMs) {
      // What the window showed at the end, so a run can be seen to have flooded it.
      if (argc > 1) kestravine::snapshot::write(window.content(), QString::fromLocal8Bit(argv[1]));
      QApplication::quit();
      return;
    }
    due = now + kPeriodNs;
    tick.start(static_cast<int>(kPeriodNs / 1'000'000));
  });
  due = clock.nsecsElapsed() + kPeriodNs;
  tick.start(static_cast<int>(kPeriodNs / 1'000'000));
  QApplication::exec();

  std::sort(late.begin(), late.end());
  auto at = [&](double q) { return late[static_cast<std::size_t>(q * (late.size() - 1))]; };
  std::printf("%.1f %.1f %.1f %zu\n", at(0.5), at(0.99), late.back(), late.size());
  return 0;
}
