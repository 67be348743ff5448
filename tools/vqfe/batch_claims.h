// The batches jobs take from a list of images. One job takes full batches. Several jobs
// take at most an even share of what is left (guided scheduling: batches shrink towards
// the end of the list, down to single images), so that they finish together instead of one
// job running the last full batch while the others wait: with batches of 16, two jobs over
// 51 images ran 32 and 19 images. A batch after a job's first costs no graph load (the
// framework keeps the graph), so single images at the end cost nothing but the wait they
// save. Thread-safe.
#pragma once

#include <cstddef>
#include <mutex>

namespace vqfe {

class BatchClaims {
public:
    static constexpr size_t kMaxBatch = 16;

    BatchClaims(size_t total, int jobs) : total_(total), jobs_(jobs < 1 ? 1 : static_cast<size_t>(jobs)) {}
    // The next batch [first, last); false when the list is done.
    bool next(size_t* first, size_t* last);

private:
    std::mutex mutex_;
    const size_t total_;
    const size_t jobs_;
    size_t next_ = 0;
};

}  // namespace vqfe
