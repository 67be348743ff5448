// The counts of networks (network.cpp) and cascades (shared_cascade.cpp) parsed from model
// bytes, read through Korvid/Diagnostics.h. One count each per process, thread-safe.
#pragma once

#include <atomic>

namespace kv {

inline std::atomic<long> networkReads{0};
inline std::atomic<long> cascadeReads{0};

}  // namespace kv
