// bench_make_photos SOURCE_DIR OUT_DIR COUNT SIDE: COUNT JPEG photos whose longer side is
// SIDE pixels, from the images of SOURCE_DIR in name order. When the folder holds fewer
// images, they are used again at a lower JPEG quality each round (92, 91, ...), so that
// every photo has its own bytes and no result is served from a cache.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: bench_make_photos SOURCE_DIR OUT_DIR COUNT SIDE\n");
        return 2;
    }
    const int count = std::atoi(argv[3]), side = std::atoi(argv[4]);
    std::vector<cv::Mat> images;
    std::vector<std::string> names;
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
        if (images.size() == static_cast<size_t>(count)) break;
        cv::Mat image = cv::imread(file.string(), cv::IMREAD_COLOR);
        if (image.empty()) continue;
        const double scale = static_cast<double>(side) / std::max(image.cols, image.rows);
        cv::Mat scaled;
        cv::resize(image, scaled, cv::Size(), scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
        images.push_back(scaled);
        names.push_back(file.stem().string());
    }
    if (images.empty() || count < 1 || side < 16) {
        std::fprintf(stderr, "bench_make_photos: no images in %s, or a bad count or side\n", argv[1]);
        return 1;
    }
    std::filesystem::create_directories(argv[2]);
    for (int i = 0; i < count; ++i) {
        const size_t n = i % images.size();
        const int quality = 92 - static_cast<int>(i / images.size());
        const std::string out = std::string(argv[2]) + "/" + names[n] + "_q" + std::to_string(quality) + ".jpg";
        if (!cv::imwrite(out, images[n], {cv::IMWRITE_JPEG_QUALITY, quality})) {
            std::fprintf(stderr, "bench_make_photos: cannot write %s\n", out.c_str());
            return 1;
        }
    }
    return 0;
}
