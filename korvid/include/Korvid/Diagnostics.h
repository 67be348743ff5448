// Korvid diagnostics: test hooks of the open desktop framework only (the device
// framework has no such functions; never call them from engine code).
//
// The open algorithm system counts how many execute() calls are inside the framework at
// the same moment, over every system of the process. Engine tests use it to prove that
// runs never overlap: reset, drive the engine from several threads, then expect
// maxConcurrentExecutes() == 1.
//
// Thread-safety: all functions are safe to call from any thread (atomic counters).
#pragma once

namespace Korvid {

// Highest number of execute() calls observed running at once since the last reset.
int maxConcurrentExecutes();
// execute() calls running right now.
int currentExecutes();
// Sets the maximum back to the current count (0 when nothing runs).
void resetExecuteCounters();

// Networks parsed from model bytes since the process started, over every system: a graph
// reloaded with the same model content reads none again.
long networksRead();
// Cascade classifiers checked and parsed from model bytes since the process started, over
// every system, counted the same way.
long cascadesRead();

}  // namespace Korvid
