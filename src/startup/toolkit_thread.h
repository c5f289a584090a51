#pragma once

#include <functional>

namespace kestravine {

// Qt paints large areas and converts images on its global thread pool, and waits for the work
// it hands there without a limit: a thread the system refuses later (a process limit reached
// while the launcher runs) would leave the window frozen for good. The pool gets its one thread
// now, with `firstTask` as its first work, and keeps it for the launcher's life; from then on
// the toolkit queues its work there and never asks the system for another thread.
//
// Returns false when the system refused that thread; nothing then runs `firstTask`, and the
// window cannot be shown safely.
//
// Threading: call once, on the GUI thread, before the application is created.
bool keepToolkitThread(std::function<void()> firstTask);

}  // namespace kestravine
