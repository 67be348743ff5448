// The process's cascades: the same bytes give the same cascade to every asker, detections
// that run at once each get a classifier of their own and find what one alone finds, and the
// process keeps no more than kKeptCascades cascades that nobody holds. Run under
// ThreadSanitizer by scripts/test.
#include "model/shared_cascade.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "model/error.h"
#include "model/network_reads.h"
#include "testing/file_bytes.h"

namespace kv {
namespace {

ModelBlob blobOf(const std::string& bytes, const char* name = "cascade") {
    return ModelBlob{name, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), nullptr};
}

// The tiny cascade with its comment changed: other bytes, the same classifier.
std::string tinyVariant(int n) {
    std::string text = vqfe_testing::fileBytes(KORVID_TINY_CASCADE);
    const std::string mark = "A one-stage LBP cascade";
    const size_t at = text.find(mark);
    EXPECT_NE(at, std::string::npos);
    return at == std::string::npos ? text : text.insert(at + mark.size(), " (variant " + std::to_string(n) + ")");
}

std::vector<cv::Rect> catFaces(const SharedCascade& cascade, const cv::Mat& gray) {
    std::vector<cv::Rect> faces;
    cascade.detect([&](cv::CascadeClassifier& c) { c.detectMultiScale(gray, faces, 1.05, 3, 0, cv::Size(24, 24)); });
    return faces;
}

TEST(SharedCascade, TheSameBytesGiveTheSameCascadeAndOtherBytesAnother) {
    const long before = cascadeReads.load();
    const std::string bytes = tinyVariant(1);
    const std::string copy = bytes;  // the same content at another address, as a reload delivers it
    const auto first = sharedCascade(blobOf(bytes));
    EXPECT_EQ(sharedCascade(blobOf(copy)), first);
    EXPECT_EQ(cascadeReads.load(), before + 1);
    const auto other = sharedCascade(blobOf(tinyVariant(2)));
    EXPECT_NE(other, first);
    EXPECT_EQ(cascadeReads.load(), before + 2);

    // Bytes that are no cascade fail at every ask and leave nothing that a later ask finds.
    const std::string broken = bytes.substr(0, bytes.size() / 2);
    for (int attempt = 0; attempt < 2; ++attempt) EXPECT_THROW(sharedCascade(blobOf(broken)), Error);
    EXPECT_THROW(sharedCascade(blobOf("")), Error);
}

TEST(SharedCascade, TheProcessKeepsOnlyTheLatestCascadesNobodyHolds) {
    std::weak_ptr<const SharedCascade> dropped = sharedCascade(blobOf(tinyVariant(10)));
    EXPECT_FALSE(dropped.expired()) << "kept for a reload although nobody holds it";
    for (int n = 11; n <= 10 + int(kKeptCascades); ++n) sharedCascade(blobOf(tinyVariant(n)));
    EXPECT_TRUE(dropped.expired()) << "gone once " << kKeptCascades << " others were asked for after it";

    // One held stays, however many others come after it.
    const auto held = sharedCascade(blobOf(tinyVariant(20)));
    for (int n = 21; n <= 20 + 2 * int(kKeptCascades); ++n) sharedCascade(blobOf(tinyVariant(n)));
    const long before = cascadeReads.load();
    EXPECT_EQ(sharedCascade(blobOf(tinyVariant(20))), held);
    EXPECT_EQ(cascadeReads.load(), before);
}

TEST(SharedCascadeConcurrency, DetectionsAtOnceEachHaveAClassifierAndFindWhatOneAloneFinds) {
    // One OpenCV thread, as the systems of several jobs run: the detections' concurrency is then
    // ours alone (OpenCV's pool hands work over in code ThreadSanitizer does not see).
    const int openCvThreads = cv::getNumThreads();
    cv::setNumThreads(1);
    struct Restore {
        int threads;
        ~Restore() { cv::setNumThreads(threads); }
    } restore{openCvThreads};
    const std::string bytes = vqfe_testing::fileBytes("/usr/share/opencv4/haarcascades/haarcascade_frontalcatface.xml");
    const auto cascade = sharedCascade(blobOf(bytes, "cat"));
    // The cat photo small and framed in grey, as the pet node gives the cascade a cat.
    const cv::Mat photo = cv::imread(std::string(KORVID_TEST_DATA_DIR) + "/chelsea.jpg");
    ASSERT_FALSE(photo.empty());
    const double scale = 160.0 / std::max(photo.cols, photo.rows);
    cv::Mat small, gray;
    cv::cvtColor(photo, gray, cv::COLOR_BGR2GRAY);
    cv::resize(gray, small, cv::Size(int(photo.cols * scale + 0.5), int(photo.rows * scale + 0.5)), 0, 0, cv::INTER_AREA);
    cv::copyMakeBorder(small, gray, 53, 53, 53, 53, cv::BORDER_CONSTANT, cv::Scalar::all(128));
    const std::vector<cv::Rect> alone = catFaces(*cascade, gray);
    ASSERT_FALSE(alone.empty()) << "the cat's face";
    EXPECT_EQ(cascade->classifierCount(), 1u);

    // Both threads hold a classifier at the same moment: the pool must give them two.
    constexpr int kThreads = 2;
    std::atomic<int> inside{0};
    std::vector<const cv::CascadeClassifier*> used(kThreads, nullptr);
    std::vector<std::vector<cv::Rect>> found(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            cascade->detect([&](cv::CascadeClassifier& c) {
                used[size_t(t)] = &c;
                ++inside;
                while (inside.load() < kThreads) std::this_thread::yield();
                c.detectMultiScale(gray, found[size_t(t)], 1.05, 3, 0, cv::Size(24, 24));
            });
            // And again, on one the pool holds by now.
            EXPECT_EQ(catFaces(*cascade, gray), alone) << "thread " << t << ", second detection";
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_NE(used[0], used[1]);
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(found[size_t(t)], alone) << "thread " << t;
    EXPECT_EQ(cascade->classifierCount(), 2u) << "as many as ran at once";
}

}  // namespace
}  // namespace kv
