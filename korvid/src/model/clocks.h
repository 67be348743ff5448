// The clocks korvid times its own work with (under KORVID_NODE_TIMES and in the network
// benchmark). A reading is in milliseconds from an arbitrary origin: only the difference of
// two readings of the same clock means anything. A report prints the difference followed by
// clockUnit() of its clock, so that no figure is read on the wrong clock.
#pragma once

#include <ctime>

namespace kv {

enum class Clock {
    Wall,        // monotonic wall time: how long the work took, waits for a core included
    ThreadCpu,   // processor time (user + system) of the calling thread: what the work cost it
    ProcessCpu,  // processor time (user + system) of every thread of the process
};

// The clock now, in milliseconds.
inline double clockMs(Clock clock) {
    const clockid_t id = clock == Clock::Wall        ? CLOCK_MONOTONIC
                         : clock == Clock::ThreadCpu ? CLOCK_THREAD_CPUTIME_ID
                                                     : CLOCK_PROCESS_CPUTIME_ID;
    timespec now{};
    clock_gettime(id, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// The unit of a difference of the clock's readings, as reports print it.
inline const char* clockUnit(Clock clock) {
    return clock == Clock::Wall        ? "ms wall"
           : clock == Clock::ThreadCpu ? "ms processor"
                                       : "ms processor (all threads)";
}

}  // namespace kv
