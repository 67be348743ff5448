// Small faces in a large image: the face node finds them (the whole image shrunk to the
// network's input would lose them), each with its mesh, and nothing on the unframed cat; the
// rows of small faces of a group photo all.
#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include "testing/builtin_templates.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

// The astronaut photo at scale, to lay on a grey canvas (empty when the photo is missing).
cv::Mat scaledAstronaut(double scale) {
    const cv::Mat astronaut = loadTestImage("astronaut.jpg");
    cv::Mat small;
    if (!astronaut.empty()) cv::resize(astronaut, small, cv::Size(), scale, scale, cv::INTER_AREA);
    return small;
}

TEST(FaceTiles, SmallFacesOfALargeImageWithTheirMeshes) {
    // Two astronauts at 0.4 scale (faces about 42 px) on a 1024 x 768 grey canvas, one
    // straddling the middle, where tiles meet.
    const cv::Mat small = scaledAstronaut(0.4);
    ASSERT_FALSE(small.empty());
    cv::Mat canvas(768, 1024, CV_8UC3, cv::Scalar::all(128));
    const std::vector<cv::Point> at{{90, 100}, {440, 400}};
    for (const cv::Point& p : at) small.copyTo(canvas(cv::Rect(p, small.size())));

    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    h.input = rgbaInput(canvas);
    std::vector<cv::Point2f> centres;
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_EQ(h->execute(h.input->buffer, static_cast<AlgorithmType>(4)), NO_ERROR) << h->getLastErrorMessage();
        auto* faces = static_cast<FaceBuffer*>(h->getResult(static_cast<AlgorithmType>(4)));
        ASSERT_NE(faces, nullptr);
        ASSERT_EQ(faces->faces.size(), at.size());
        std::vector<cv::Point2f> now;
        for (const auto& f : faces->faces) {
            // The astronaut's face centre (0.435, 0.22 of her photo) inside each copy.
            now.emplace_back(f->rect.x + f->rect.width / 2, f->rect.y + f->rect.height / 2);
            EXPECT_EQ(f->points.size(), 106u);
            EXPECT_EQ(faces->extras.size(), at.size());
        }
        std::sort(now.begin(), now.end(), [](auto a, auto b) { return a.x < b.x; });
        for (size_t i = 0; i < at.size(); ++i) {
            EXPECT_NEAR(now[i].x, (at[i].x + 0.435f * small.cols) / canvas.cols, 0.02f);
            EXPECT_NEAR(now[i].y, (at[i].y + 0.22f * small.rows) / canvas.rows, 0.02f);
        }
        if (pass == 1) {
            EXPECT_EQ(now, centres);  // same image, same faces
        }
        centres = now;
    }

    ASSERT_EQ(h.run(builtinTemplate(4), "chelsea.jpg", 4), NO_ERROR);
    EXPECT_TRUE(static_cast<FaceBuffer*>(h->getResult(static_cast<AlgorithmType>(4)))->faces.empty());
}

TEST(FaceTiles, EveryFaceOfAGroupPhoto) {
    // Rows of astronauts at 0.28 scale (faces about 29 px, as in a group photo of 1024 px),
    // 40 on a 1024 x 705 canvas: a third of them score below 0.85 in their tiles.
    const cv::Mat small = scaledAstronaut(0.28);
    ASSERT_FALSE(small.empty());
    cv::Mat canvas(705, 1024, CV_8UC3, cv::Scalar::all(128));
    std::vector<cv::Point2f> expected;
    for (int y = 10; y + small.rows <= canvas.rows; y += small.rows + 10) {
        for (int x = 10; x + small.cols <= canvas.cols; x += small.cols + 8) {
            small.copyTo(canvas(cv::Rect(cv::Point(x, y), small.size())));
            expected.emplace_back((x + 0.435f * small.cols) / canvas.cols, (y + 0.22f * small.rows) / canvas.rows);
        }
    }
    ASSERT_EQ(expected.size(), 40u);

    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    ASSERT_EQ(h->setIntParams(AlgorithmType::Face, {{"face_max_num", 256}}), NO_ERROR);
    h.input = rgbaInput(canvas);
    ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::Face), NO_ERROR) << h->getLastErrorMessage();
    auto* faces = static_cast<FaceBuffer*>(h->getResult(AlgorithmType::Face));
    ASSERT_NE(faces, nullptr);
    EXPECT_EQ(faces->faces.size(), expected.size());
    for (const cv::Point2f& e : expected) {
        // Each face once, where it was put, with its mesh.
        const auto near = std::count_if(faces->faces.begin(), faces->faces.end(), [&](const auto& f) {
            return std::abs(f->rect.x + f->rect.width / 2 - e.x) < 0.02f && std::abs(f->rect.y + f->rect.height / 2 - e.y) < 0.02f &&
                   f->points.size() == 106u;
        });
        EXPECT_EQ(near, 1) << "face at " << e;
    }
}

}  // namespace
}  // namespace kv::testing
