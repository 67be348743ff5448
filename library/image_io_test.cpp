#include "library/image_io.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

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


// A folder search takes .jpg, .jpeg and .png in any case, and says what else it passed
// over, so that photos in another format are not left out without a word. A symlink to
// nothing is neither, and does not end the search.
TEST(ImageIoTest, FolderSearchNamesTheFilesItSkips) {
    VQFeature::TempDir dir;
    for (const char* name : {"a.jpg", "b.PNG", "sub/c.jpeg", "notes.txt", "x.HEIC", "sub/y.heic", "Makefile"}) {
        dir.write(name, "bytes");
    }
    std::filesystem::create_symlink(dir.path() + "/nowhere", dir.path() + "/0-dangling.jpg");
    std::vector<std::string> problems;
    const std::vector<std::string> files = collectImages({dir.path()}, &problems);
    EXPECT_EQ(files, (std::vector<std::string>{dir.path() + "/a.jpg", dir.path() + "/b.PNG", dir.path() + "/sub/c.jpeg"}));
    EXPECT_EQ(problems, std::vector<std::string>{dir.path() +
                                                 ": skipped 4 files that are not .jpg, .jpeg or .png "
                                                 "(2 .heic, 1 without extension, 1 .txt)"});

    VQFeature::TempDir others;
    others.write("clip.gif", "bytes");
    problems.clear();
    EXPECT_TRUE(collectImages({others.path()}, &problems).empty());
    EXPECT_EQ(problems, std::vector<std::string>{"no JPEG or PNG images in " + others.path() +
                                                 ", only 1 file that is not .jpg, .jpeg or .png (1 .gif)"});
}

TEST(ImageIoTest, NamedPathsAreTakenWhenTheyAreFiles) {
    VQFeature::TempDir dir;
    dir.write("scan.tiff", "bytes");  // named, a file is taken whatever its extension
    std::vector<std::string> problems;
    const std::vector<std::string> files =
        collectImages({dir.path() + "/scan.tiff", "/dev/zero", dir.path() + "/missing.jpg"}, &problems);
    EXPECT_EQ(files, std::vector<std::string>{dir.path() + "/scan.tiff"});
    EXPECT_EQ(problems, (std::vector<std::string>{"not a regular file: /dev/zero",
                                                  "no such file or directory: " + dir.path() + "/missing.jpg"}));
}

}  // namespace
}  // namespace vqfe
