// The count of networks parsed from model bytes (network.cpp), read through
// Korvid/Diagnostics.h. One count per process, thread-safe.
#pragma once

#include <atomic>

namespace kv {

inline std::atomic<long> networkReads{0};

}  // namespace kv
