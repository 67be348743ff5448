#include "library/image_io.h"

#include <algorithm>
#include <filesystem>
#include <cstdio>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "vantor/md5.h"

namespace vqfe {

namespace fs = std::filesystem;

std::optional<LoadedImage> loadImage(const std::string& path, std::string* error) {
    std::string bytes;
    bool readable = false;
    if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
        char chunk[1 << 16];
        for (size_t got; (got = std::fread(chunk, 1, sizeof chunk, file)) > 0;) bytes.append(chunk, got);
        readable = std::ferror(file) == 0;
        std::fclose(file);
    }
    if (!readable) {
        *error = "cannot read " + path;
        return std::nullopt;
    }
    if (bytes.empty()) {
        *error = "empty file " + path;
        return std::nullopt;
    }
    cv::Mat decoded;
    try {
        decoded = cv::imdecode(cv::Mat(1, static_cast<int>(bytes.size()), CV_8UC1, bytes.data()), cv::IMREAD_COLOR);
    } catch (const cv::Exception&) {
        decoded.release();
    }
    if (decoded.empty()) {
        *error = path + " is not a JPEG or PNG image";
        return std::nullopt;
    }
    cv::Mat rgba;
    cv::cvtColor(decoded, rgba, cv::COLOR_BGR2RGBA);

    LoadedImage image;
    image.path = path;
    image.assetId = VQFeature::md5(bytes);
    image.buffer = std::make_shared<VQFeature::ImageBuffer>();
    image.buffer->width = rgba.cols;
    image.buffer->height = rgba.rows;
    image.buffer->format = 0;
    image.buffer->rotateMode = 0;
    const unsigned long length = rgba.total() * rgba.elemSize();
    image.buffer->setData(reinterpret_cast<const char*>(rgba.data), length);
    image.buffer->length = length;
    return image;
}

std::vector<std::string> collectImages(const std::vector<std::string>& arguments, std::vector<std::string>* problems) {
    auto isImage = [](const fs::path& p) {
        std::string ext = p.extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
        return ext == ".jpg" || ext == ".jpeg" || ext == ".png";
    };
    std::vector<std::string> files;
    for (const auto& argument : arguments) {
        std::error_code ec;
        if (fs::is_directory(argument, ec)) {
            std::vector<std::string> found;
            for (fs::recursive_directory_iterator it(argument, fs::directory_options::skip_permission_denied, ec), end;
                 !ec && it != end; it.increment(ec)) {
                if (it->is_regular_file(ec) && isImage(it->path())) found.push_back(it->path().string());
            }
            if (ec) problems->push_back("cannot list " + argument + ": " + ec.message());
            else if (found.empty()) problems->push_back("no JPEG or PNG images in " + argument);
            std::sort(found.begin(), found.end());
            files.insert(files.end(), found.begin(), found.end());
        } else if (fs::exists(argument, ec)) {
            files.push_back(argument);
        } else {
            problems->push_back("no such file or directory: " + argument);
        }
    }
    return files;
}

}  // namespace vqfe
