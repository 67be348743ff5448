// A one-line progress bar on standard error, drawn only when standard error is a
// terminal and the run has more than a few items. Thread-safe.
#pragma once

#include <chrono>
#include <mutex>

namespace vqfe {

class Progress {
public:
    explicit Progress(size_t total);
    ~Progress();
    void advance();  // one item done

private:
    void draw();

    size_t total_;
    size_t done_ = 0;
    bool enabled_;
    std::mutex mutex_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point lastDraw_{};
};

}  // namespace vqfe
