#include "Korvid/Diagnostics.h"

#include "graph/execute_counter.h"
#include "model/network_reads.h"

namespace kv {

std::atomic<int> ExecuteCounter::current{0};
std::atomic<int> ExecuteCounter::maximum{0};

ExecuteCounter::ExecuteCounter() {
    int now = current.fetch_add(1) + 1;
    int seen = maximum.load();
    while (now > seen && !maximum.compare_exchange_weak(seen, now)) {
    }
}

ExecuteCounter::~ExecuteCounter() { current.fetch_sub(1); }

}  // namespace kv

namespace Korvid {

int maxConcurrentExecutes() { return kv::ExecuteCounter::maximum.load(); }
int currentExecutes() { return kv::ExecuteCounter::current.load(); }
void resetExecuteCounters() { kv::ExecuteCounter::maximum.store(kv::ExecuteCounter::current.load()); }
long networksRead() { return kv::networkReads.load(); }
long cascadesRead() { return kv::cascadeReads.load(); }

}  // namespace Korvid
