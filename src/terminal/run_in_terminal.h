#pragma once

namespace kestravine {

class SingleInstance;

// The launcher where no desktop answers: the same Model driven from a terminal, on a main loop
// of its own (no window toolkit). `interactive`: standard input and output are a terminal, and
// keys drive the flow; otherwise (the automatic start for scripts) plain lines go to standard
// output. `instance` is this home's one-launcher guard, held as the first. Returns the exit
// status: 0 the product answers (or nothing was started), 1 a failure, 2 cancelled or stopped
// before the product answered.
//
// Threading: the main thread, before any other thread exists; it becomes the loop's thread.
int runInTerminal(SingleInstance& instance, bool interactive);

}  // namespace kestravine
