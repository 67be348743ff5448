// A one-line progress bar on standard error, drawn only when standard error is a
// terminal and the run has more than a few items. Thread-safe.
#pragma once

#include <chrono>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <string>

namespace vqfe {

class Progress {
public:
    explicit Progress(size_t total);
    // Draws on out when enabled (tests).
    Progress(size_t total, FILE* out, bool enabled);
    ~Progress();
    void advance();  // one item done
    // Ends the bar's line, so what is printed next starts a line of its own. Once.
    void finish();
    // Writes line and a newline to err (standard error, where the bar is) on a line of its
    // own: a bar on screen is cleared first and drawn again after, instead of the line
    // being glued to its end.
    void note(std::ostream& err, const std::string& line);

private:
    void draw();

    size_t total_;
    size_t done_ = 0;
    FILE* out_;
    bool enabled_;
    bool finished_ = false;
    bool drawn_ = false;
    std::mutex mutex_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point lastDraw_{};
};

}  // namespace vqfe
