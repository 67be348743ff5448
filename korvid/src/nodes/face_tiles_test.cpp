// Small faces in a large image: the face node finds them (the whole image shrunk to the
// network's input would lose them), each with its mesh, and nothing on the unframed cat.
#include <algorithm>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include "testing/builtin_templates.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

TEST(FaceTiles, SmallFacesOfALargeImageWithTheirMeshes) {
    // Two astronauts at 0.4 scale (faces about 42 px) on a 1024 x 768 grey canvas, one
    // straddling the middle, where tiles meet.
    const cv::Mat astronaut = loadTestImage("astronaut.jpg");
    ASSERT_FALSE(astronaut.empty());
    cv::Mat small;
    cv::resize(astronaut, small, cv::Size(), 0.4, 0.4, cv::INTER_AREA);
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

}  // namespace
}  // namespace kv::testing
