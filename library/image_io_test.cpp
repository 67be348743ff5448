#include "library/image_io.h"

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "testing/temp_dir.h"

namespace vqfe {
namespace {

// What the app hands over: RGBA8888 rows of width x 4 bytes in the buffer's own block,
// whatever the file's channels (a grey PNG, a PNG with alpha), alpha always opaque.
TEST(ImageIoTest, PhotosBecomeOpaqueRgbaInTheBuffersOwnBlock) {
    VQFeature::TempDir dir;
    cv::Mat bgr(3, 5, CV_8UC3);
    cv::Mat grey(2, 3, CV_8UC1);
    cv::Mat bgra(4, 2, CV_8UC4);
    cv::randu(bgr, 0, 256);
    cv::randu(grey, 0, 256);
    cv::randu(bgra, 0, 256);
    ASSERT_TRUE(cv::imwrite(dir.path() + "/bgr.png", bgr));
    ASSERT_TRUE(cv::imwrite(dir.path() + "/grey.png", grey));
    ASSERT_TRUE(cv::imwrite(dir.path() + "/bgra.png", bgra));
    for (const auto& [name, written] : {std::pair{"bgr.png", bgr}, {"grey.png", grey}, {"bgra.png", bgra}}) {
        std::string error;
        const auto image = loadImage(dir.path() + "/" + name, &error);
        ASSERT_TRUE(image) << name << ": " << error;
        const VQFeature::ImageBuffer& buffer = *image->buffer;
        ASSERT_EQ(buffer.width, written.cols) << name;
        ASSERT_EQ(buffer.height, written.rows) << name;
        ASSERT_EQ(buffer.format, 0) << name;
        ASSERT_EQ(buffer.length, static_cast<unsigned long>(written.total() * 4)) << name;
        ASSERT_EQ(buffer.readableBytes(), buffer.length) << name;
        for (int y = 0; y < written.rows; ++y) {
            for (int x = 0; x < written.cols; ++x) {
                const unsigned char* rgba = buffer.data + (y * written.cols + x) * 4;
                const unsigned char* source = written.ptr(y) + x * written.channels();
                const bool isGrey = written.channels() == 1;
                EXPECT_EQ(rgba[0], isGrey ? source[0] : source[2]) << name << " at " << x << "," << y;
                EXPECT_EQ(rgba[1], isGrey ? source[0] : source[1]) << name << " at " << x << "," << y;
                EXPECT_EQ(rgba[2], source[0]) << name << " at " << x << "," << y;
                EXPECT_EQ(rgba[3], 255) << name << " at " << x << "," << y;
            }
        }
    }
}

}  // namespace
}  // namespace vqfe
