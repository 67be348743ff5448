#include "tools/vqfe/batch_claims.h"

#include <algorithm>

namespace vqfe {

bool BatchClaims::next(size_t* first, size_t* last) {
    std::lock_guard<std::mutex> lock(mutex_);
    const size_t left = total_ - next_;
    if (left == 0) return false;
    size_t size = kMaxBatch;
    if (jobs_ > 1) size = std::clamp<size_t>(left / jobs_, 1, kMaxBatch);
    size = std::min(size, left);
    *first = next_;
    next_ += size;
    *last = next_;
    return true;
}

}  // namespace vqfe
