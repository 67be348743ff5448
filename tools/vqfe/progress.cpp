#include "tools/vqfe/progress.h"

#include <unistd.h>

#include <cstdio>

namespace vqfe {

Progress::Progress(size_t total) : Progress(total, stderr, total > 5 && isatty(STDERR_FILENO)) {}

Progress::Progress(size_t total, FILE* out, bool enabled) : total_(total), out_(out), enabled_(enabled) {}

Progress::~Progress() { finish(); }

void Progress::finish() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!enabled_ || finished_) return;
    finished_ = true;
    std::fputs("\n", out_);
    std::fflush(out_);
}

void Progress::note(std::ostream& err, const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    const bool barShown = enabled_ && drawn_ && !finished_;
    if (barShown) {
        std::fputs("\r\033[K", out_);  // to the start of the line, and clear it
        std::fflush(out_);
    }
    err << line << "\n";
    err.flush();
    if (barShown) draw();
}

void Progress::advance() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++done_;
    if (!enabled_ || finished_) return;
    const auto now = std::chrono::steady_clock::now();
    if (done_ < total_ && now - lastDraw_ < std::chrono::milliseconds(100)) return;
    lastDraw_ = now;
    draw();
}

void Progress::draw() {
    constexpr int kWidth = 30;
    const int filled = static_cast<int>(kWidth * done_ / total_);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    const double rate = seconds > 0 ? done_ / seconds : 0;
    char bar[kWidth + 1];
    for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kWidth] = '\0';
    std::fprintf(out_, "\r[%s] %zu/%zu  %.1f images/s", bar, done_, total_, rate);
    drawn_ = true;
    std::fflush(out_);
}

}  // namespace vqfe
