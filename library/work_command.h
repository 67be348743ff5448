// `vqfe enqueue`, `vqfe work` and `vqfe status`: work shared through a PostgreSQL store
// by any number of worker processes on any number of machines (see JobQueue). Images
// are read by path, so every worker must see them at the same path.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "library/kinds.h"

namespace vqfe {

struct WorkOptions {
    std::string store;           // connection URI
    std::string modelDir;
    std::string frameworkConfig;
    int jobs = 1;                // worker threads, each with its own framework and connection
    int leaseSeconds = 60;
    int batch = 8;               // jobs claimed at once per thread
    bool follow = false;         // keep waiting for new jobs instead of returning
    // The graph text of a request over a set of kinds (may throw std::runtime_error).
    std::function<std::string(const std::vector<Kind>&)> graphOf;
};

// Exit codes as `vqfe extract`: 0 done, 1 nothing could run (or the store failed).
int runEnqueue(const std::string& store, const std::vector<Kind>& kinds, const std::vector<std::string>& inputs,
               std::ostream& out, std::ostream& err);
int runWork(const WorkOptions& options, std::ostream& out, std::ostream& err);
int runStatus(const std::string& store, std::ostream& out, std::ostream& err);

}  // namespace vqfe
