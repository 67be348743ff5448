#include "dnn/text_reader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <opencv2/imgproc.hpp>

// OpenMP's own setting, from the runtime Tesseract loads (absent without one).
extern "C" {
__attribute__((weak)) void omp_set_max_active_levels(int);
__attribute__((weak)) int omp_get_max_active_levels(void);
}

namespace kv {
namespace {

// Dark lines of text on white paper.
cv::Mat renderedPage(const cv::Size& size, double scale) {
    cv::Mat page(size, CV_8UC1, cv::Scalar(255));
    const char* lines[] = {"The quick brown fox jumps over", "the lazy dog near the river", "while seven children watch", "from the old stone bridge"};
    int y = int(60 * scale);
    for (const char* line : lines) {
        cv::putText(page, line, cv::Point(int(30 * scale), y), cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(0), std::max(1, int(2 * scale)), cv::LINE_AA);
        y += int(60 * scale);
    }
    return page;
}

TEST(TextReader, ReadsRenderedLinesAndNothingInNoiseOrSmoothImages) {
    if (!textReaderAvailable()) GTEST_SKIP() << "built without Tesseract or its English data";
    // A page and the same page as a small photo (scaled up before reading).
    for (const auto& [size, scale] : {std::pair{cv::Size(900, 320), 1.2}, std::pair{cv::Size(512, 180), 0.65}}) {
        const TextEvidence e = readText(renderedPage(size, scale));
        EXPECT_TRUE(e.measured);
        EXPECT_GE(e.words, 14) << size;
        EXPECT_EQ(e.lines, 4) << size;
        EXPECT_GE(e.characters, 70) << size;
        EXPECT_GT(e.coverage, 0.15) << size;
        EXPECT_LT(e.coverage, 0.8) << size;
    }
    cv::Mat noise(480, 640, CV_8UC1), smooth;
    cv::randu(noise, 0, 256);
    cv::GaussianBlur(noise, smooth, cv::Size(0, 0), 6);
    cv::normalize(smooth, smooth, 0, 255, cv::NORM_MINMAX);
    for (const cv::Mat& image : {noise, smooth}) {
        const TextEvidence e = readText(image);
        EXPECT_TRUE(e.measured);
        EXPECT_LE(e.words, 1);
        EXPECT_LT(e.coverage, 0.01);
    }
}

// The one engine of the process serves several threads at once, each as if alone.
TEST(TextReader, ThreadsReadAsAlone) {
    if (!textReaderAvailable()) GTEST_SKIP() << "built without Tesseract or its English data";
    const cv::Mat page = renderedPage(cv::Size(700, 260), 0.9);
    const TextEvidence alone = readText(page);
    std::vector<TextEvidence> seen(3);
    std::vector<std::thread> threads;
    for (TextEvidence& mine : seen) threads.emplace_back([&] { mine = readText(page); });
    for (std::thread& t : threads) t.join();
    for (const TextEvidence& e : seen) {
        EXPECT_EQ(e.words, alone.words);
        EXPECT_EQ(e.characters, alone.characters);
        EXPECT_EQ(e.lines, alone.lines);
        EXPECT_EQ(e.coverage, alone.coverage);
    }
}

// A read turns OpenMP's parallelism off for the reading thread only: each reader gets its own
// setting back, also when readers wait for each other, and a thread that does not read keeps
// its own throughout.
TEST(TextReader, OpenMpSettingIsTheReadersOwnAndComesBack) {
    if (!textReaderAvailable()) GTEST_SKIP() << "built without Tesseract or its English data";
    if (omp_get_max_active_levels == nullptr || omp_set_max_active_levels == nullptr) GTEST_SKIP() << "no OpenMP runtime";
    const cv::Mat page = renderedPage(cv::Size(700, 260), 0.9);
    std::atomic<int> reading{3};
    int lowestBeside = -1;
    std::thread beside([&] {
        omp_set_max_active_levels(2);
        int lowest = omp_get_max_active_levels();
        while (reading > 0) {
            lowest = std::min(lowest, omp_get_max_active_levels());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        lowestBeside = lowest;
    });
    std::vector<int> after(3, -1);
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&, i] {
            omp_set_max_active_levels(i + 3);
            EXPECT_TRUE(readText(page).measured);
            after[i] = omp_get_max_active_levels();
            --reading;
        });
    }
    for (std::thread& t : readers) t.join();
    beside.join();
    EXPECT_EQ(after, (std::vector<int>{3, 4, 5}));
    EXPECT_EQ(lowestBeside, 2);
}

// Shapes the engine is never given come back unread; large or thin ones are read scaled.
TEST(TextReader, ExtremeShapesReturnCleanly) {
    const cv::Mat white(1, 1, CV_8UC1, cv::Scalar(255));
    for (const cv::Mat& image : {cv::Mat(), white, cv::Mat(1, 16384, CV_8UC1, cv::Scalar(0)), cv::Mat(16384, 1, CV_8UC1, cv::Scalar(0)),
                                 cv::Mat(7, 100, CV_8UC1, cv::Scalar(0)), cv::Mat(40, 4000, CV_8UC1, cv::Scalar(0)),
                                 cv::Mat(64, 64, CV_8UC3, cv::Scalar(0, 0, 0)), cv::Mat(64, 64, CV_32FC1, cv::Scalar(0))}) {
        const TextEvidence e = readText(image);
        EXPECT_FALSE(e.measured) << image.size;
        EXPECT_EQ(e.words, 0);
    }
    if (!textReaderAvailable()) return;
    for (const cv::Mat& image : {cv::Mat(8, 8, CV_8UC1, cv::Scalar(255)), cv::Mat(100, 2000, CV_8UC1, cv::Scalar(0)),
                                 cv::Mat(6000, 8000, CV_8UC1, cv::Scalar(200))}) {
        const TextEvidence e = readText(image);
        EXPECT_TRUE(e.measured) << image.size;
        EXPECT_EQ(e.words, 0) << image.size;
    }
}

}  // namespace
}  // namespace kv
