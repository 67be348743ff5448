// kv::ExecuteCounter: scope guard counting the execute() calls in progress across the
// process, read through Korvid/Diagnostics.h. Atomic, thread-safe.
#pragma once

#include <atomic>

namespace kv {

class ExecuteCounter {
public:
    ExecuteCounter();
    ~ExecuteCounter();
    ExecuteCounter(const ExecuteCounter&) = delete;
    ExecuteCounter& operator=(const ExecuteCounter&) = delete;

    static std::atomic<int> current;
    static std::atomic<int> maximum;
};

}  // namespace kv
