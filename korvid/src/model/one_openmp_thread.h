// OpenMP's thread count of the calling thread set to one while a scope runs, and set back
// after: oneDNN's parallel sections then run on the caller's thread alone.
#pragma once

#include <omp.h>

namespace kv {

class OneThread {
public:
    OneThread() : saved_(omp_get_max_threads()) { omp_set_num_threads(1); }
    ~OneThread() { omp_set_num_threads(saved_); }
    OneThread(const OneThread&) = delete;
    OneThread& operator=(const OneThread&) = delete;

private:
    int saved_;
};

}  // namespace kv
