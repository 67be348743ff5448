// Pixel formats, rotations and data lengths of the image input.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "testing/builtin_templates.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

// The image in the given format, rows padded to stride bytes (0: packed).
std::vector<uint8_t> encode(const cv::Mat& bgr, int format, int stride = 0) {
    cv::Mat m;
    switch (format) {
        case PIXEL_FORMAT_AUTO:
        case PIXEL_FORMAT_RGBA8888: cv::cvtColor(bgr, m, cv::COLOR_BGR2RGBA); break;
        case PIXEL_FORMAT_BGRA8888: cv::cvtColor(bgr, m, cv::COLOR_BGR2BGRA); break;
        case PIXEL_FORMAT_RGB888: cv::cvtColor(bgr, m, cv::COLOR_BGR2RGB); break;
        case PIXEL_FORMAT_BGR888: m = bgr.clone(); break;
        case PIXEL_FORMAT_GRAY8: cv::cvtColor(bgr, m, cv::COLOR_BGR2GRAY); break;
        case PIXEL_FORMAT_ARGB8888: {
            cv::Mat rgba;
            cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
            m.create(bgr.size(), CV_8UC4);
            const int fromTo[] = {3, 0, 0, 1, 1, 2, 2, 3};
            cv::mixChannels(&rgba, 1, &m, 1, fromTo, 4);
            break;
        }
        default: {
            cv::Mat i420;
            cv::cvtColor(bgr, i420, cv::COLOR_BGR2YUV_I420);
            if (format == PIXEL_FORMAT_I420) {
                m = i420;
                break;
            }
            // Interleave the chroma planes for NV12 (U,V) or NV21 (V,U).
            const int w = bgr.cols, h = bgr.rows;
            m = cv::Mat(h * 3 / 2, w, CV_8UC1);
            i420.rowRange(0, h).copyTo(m.rowRange(0, h));
            const uint8_t* u = i420.ptr(h);
            const uint8_t* v = u + (w / 2) * (h / 2);
            uint8_t* uv = m.ptr(h);
            for (int i = 0; i < (w / 2) * (h / 2); ++i) {
                uv[2 * i] = format == PIXEL_FORMAT_NV12 ? u[i] : v[i];
                uv[2 * i + 1] = format == PIXEL_FORMAT_NV12 ? v[i] : u[i];
            }
        }
    }
    const size_t row = m.cols * m.elemSize();
    const size_t pitch = stride ? size_t(stride) : row;
    std::vector<uint8_t> out(pitch * m.rows, 0xAB);
    for (int r = 0; r < m.rows; ++r) std::memcpy(out.data() + pitch * r, m.ptr(r), row);
    return out;
}

VantorImageBuffer bufferOf(const std::vector<uint8_t>& bytes, int w, int h, int format, int rotation = 0, int stride = 0) {
    VantorImageBuffer b;
    b.width = w;
    b.height = h;
    b.format = format;
    b.rotation = rotation;
    b.stride = stride;
    b.data = bytes.data();
    b.dataLength = bytes.size();
    return b;
}

Glintcore::Rect onlyFace(SystemHarness& h, const VantorImageBuffer& input) {
    EXPECT_EQ(h->execute(input, AlgorithmType::Face), NO_ERROR) << h->getLastErrorMessage();
    auto* faces = static_cast<FaceBuffer*>(h->getResult(AlgorithmType::Face));
    if (faces == nullptr || faces->faces.size() != 1) {
        ADD_FAILURE() << "expected one face";
        return {};
    }
    return faces->faces[0]->rect;
}

TEST(ImageInput, EveryPixelFormatShowsTheSameFace) {
    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    const cv::Mat bgr = loadTestImage("astronaut.jpg");
    const auto reference = encode(bgr, PIXEL_FORMAT_RGBA8888);
    const Glintcore::Rect expected = onlyFace(h, bufferOf(reference, bgr.cols, bgr.rows, 0));
    for (int format = PIXEL_FORMAT_AUTO; format <= PIXEL_FORMAT_ARGB8888; ++format) {
        for (int padded : {0, 1}) {
            const bool yuv = format >= PIXEL_FORMAT_NV21 && format <= PIXEL_FORMAT_I420;
            const int bpp = format == PIXEL_FORMAT_RGB888 || format == PIXEL_FORMAT_BGR888 ? 3
                            : format == PIXEL_FORMAT_GRAY8 || yuv                          ? 1
                                                                                           : 4;
            const int stride = padded && !yuv ? bgr.cols * bpp + 16 : 0;
            const auto bytes = encode(bgr, format, stride);
            const Glintcore::Rect r = onlyFace(h, bufferOf(bytes, bgr.cols, bgr.rows, format, 0, stride));
            EXPECT_NEAR(r.x, expected.x, 0.03) << "format " << format;
            EXPECT_NEAR(r.y, expected.y, 0.03) << "format " << format;
        }
    }
}

TEST(ImageInput, RotationTurnsTheImageUpright) {
    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    const cv::Mat bgr = loadTestImage("astronaut.jpg");
    const auto upright = encode(bgr, PIXEL_FORMAT_BGR888);
    const Glintcore::Rect expected = onlyFace(h, bufferOf(upright, bgr.cols, bgr.rows, PIXEL_FORMAT_BGR888));
    // Stored turned by k*90 degrees counter-clockwise, so code k turns it back.
    const cv::RotateFlags stored[] = {cv::ROTATE_90_COUNTERCLOCKWISE, cv::ROTATE_180, cv::ROTATE_90_CLOCKWISE};
    for (int code = 1; code <= 3; ++code) {
        cv::Mat turned;
        cv::rotate(bgr, turned, stored[code - 1]);
        const auto bytes = encode(turned, PIXEL_FORMAT_BGR888);
        const Glintcore::Rect r = onlyFace(h, bufferOf(bytes, turned.cols, turned.rows, PIXEL_FORMAT_BGR888, code));
        EXPECT_NEAR(r.x, expected.x, 0.02) << "rotation " << code;
        EXPECT_NEAR(r.y, expected.y, 0.02) << "rotation " << code;
    }
}

TEST(ImageInput, UnusableInputsFailWithInvalidFormat) {
    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(29)), NO_ERROR);
    std::vector<uint8_t> bytes(64 * 48 * 4, 128);
    auto expectFormatError = [&h](const VantorAlgorithmInput& in, const char* what) {
        EXPECT_EQ(h->execute(in, AlgorithmType::Similarity), INVALID_FORMAT) << what;
        EXPECT_EQ(h->getResult(AlgorithmType::Similarity), nullptr);
    };
    EXPECT_EQ(h->execute(bufferOf(bytes, 64, 48, 0), AlgorithmType::Similarity), NO_ERROR);
    VantorImageBuffer b = bufferOf(bytes, 64, 48, 0);
    b.dataLength = bytes.size() - 1;
    expectFormatError(b, "one byte short");
    expectFormatError(bufferOf(bytes, 64, 48, 0, 0, 64 * 4 + 4), "stride pushes past the end");
    expectFormatError(bufferOf(bytes, 64, 48, 0, 0, 100), "stride shorter than a row");
    expectFormatError(bufferOf(bytes, 64, 48, 0, 0, -4), "negative stride");
    expectFormatError(bufferOf(bytes, 64, 48, 9), "format 9");
    expectFormatError(bufferOf(bytes, 64, 48, -2), "format -2");
    expectFormatError(bufferOf(bytes, 64, 48, 0, 4), "rotation 4");
    expectFormatError(bufferOf(bytes, 64, 48, 0, -1), "rotation -1");
    expectFormatError(bufferOf(bytes, 0, 48, 0), "zero width");
    expectFormatError(bufferOf(bytes, 64, -1, 0), "negative height");
    expectFormatError(bufferOf(bytes, 20000, 20000, 0), "huge");
    expectFormatError(bufferOf(bytes, 63, 48, PIXEL_FORMAT_NV21), "odd YUV width");
    expectFormatError(bufferOf(bytes, 64, 47, PIXEL_FORMAT_NV21), "odd YUV height");
    b = bufferOf(bytes, 64, 48, 0);
    b.data = nullptr;
    expectFormatError(b, "no data");
    b = bufferOf(bytes, 64, 48, 0);
    b.type = INPUT_TYPE_TENSOR;
    expectFormatError(b, "not an image");
    VantorAlgorithmInput tensor(INPUT_TYPE_TENSOR);
    expectFormatError(tensor, "base input");
    // Exactly enough bytes for every format is accepted.
    for (auto [format, size] : std::vector<std::pair<int, size_t>>{
             {2, 64 * 48 * 3}, {4, 64 * 48}, {5, 64 * 72}, {6, 64 * 72}, {7, 64 * 72}, {8, 64 * 48 * 4}}) {
        EXPECT_EQ(h->execute(bufferOf(std::vector<uint8_t>(size, 90), 64, 48, format), AlgorithmType::Similarity), NO_ERROR)
            << format;
        EXPECT_EQ(h->execute(bufferOf(std::vector<uint8_t>(size - 1, 90), 64, 48, format), AlgorithmType::Similarity),
                  INVALID_FORMAT)
            << format;
    }
}

}  // namespace
}  // namespace kv::testing
