#include "library/image_io.h"

#include <algorithm>
#include <filesystem>
#include <cstdio>
#include <map>
#include <cstring>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cache/pg_cache.h"
#include "encoding/message_json.h"
#include "vantor/md5.h"

namespace vqfe {

namespace fs = std::filesystem;

bool jpegEndsEarly(const std::string& bytes) {
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(bytes[at]); };
    if (bytes.size() < 2 || byte(0) != 0xFF || byte(1) != 0xD8) return false;
    size_t at = 2;
    bool inScan = false;
    while (at + 1 < bytes.size()) {
        if (byte(at) != 0xFF) {
            if (!inScan) return false;  // not a marker where one belongs: not for this check to judge
            const void* next = std::memchr(bytes.data() + at, 0xFF, bytes.size() - at);
            if (next == nullptr) return true;
            at = static_cast<size_t>(static_cast<const char*>(next) - bytes.data());
            continue;
        }
        const unsigned char marker = byte(at + 1);
        // In a scan, FF 00 is a data byte and FF D0..D7 a restart; FF FF is fill.
        if (marker == 0x00 || (marker >= 0xD0 && marker <= 0xD7) || marker == 0xFF) {
            ++at;
            continue;
        }
        if (marker == 0xD9) return false;
        if (at + 3 >= bytes.size()) return true;
        at += 2 + ((size_t{byte(at + 2)} << 8) | byte(at + 3));
        inScan = marker == 0xDA;
    }
    return true;
}

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
    LoadedImage image;
    image.path = path;
    image.assetId = VQFeature::md5(bytes);
    image.buffer = std::make_shared<VQFeature::ImageBuffer>();
    image.buffer->width = decoded.cols;
    image.buffer->height = decoded.rows;
    image.buffer->format = 0;
    image.buffer->rotateMode = 0;
    // The RGBA pixels are converted straight into the buffer's own block (a megabyte at
    // 512 px) rather than into a matrix of their own and copied.
    const unsigned long length = decoded.total() * 4;
    image.buffer->setData(nullptr, length);
    image.buffer->length = length;
    cv::Mat rgba(decoded.rows, decoded.cols, CV_8UC4, image.buffer->data);
    cv::cvtColor(decoded, rgba, cv::COLOR_BGR2RGBA);
    if (rgba.data != image.buffer->data) {
        // Not expected (the matrix has the size and type asked for), but then the pixels are
        // in rgba's new block.
        image.buffer->setData(reinterpret_cast<const char*>(rgba.data), length);
    }
    image.truncated = jpegEndsEarly(bytes);
    return image;
}

std::string truncatedWarning(const std::string& path) {
    return "warning: " + path + " ends early (a truncated JPEG): the missing part is analysed as grey";
}

std::string pathUnfitForStore(const std::string& store, const std::string& path) {
    if (!VQFeature::PgCache::isUri(store)) return "";
    std::error_code ec;
    const std::string absolute = fs::absolute(path, ec).string();
    if (VQFeature::isUtf8(path) && (ec || VQFeature::isUtf8(absolute))) return "";
    return path + ": its path is not UTF-8, which a PostgreSQL store cannot keep (rename it, or use a SQLite store)";
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

namespace {

// "3 files that are not .jpg, .jpeg or .png (2 .heic, 1 .gif)": the files a directory
// search passed over, by extension, the most frequent first, so that photos in another
// format are not left out without a word.
std::string skippedFiles(const std::map<std::string, size_t>& byExtension) {
    std::vector<std::pair<size_t, std::string>> counts;
    size_t total = 0;
    for (const auto& [extension, count] : byExtension) {
        counts.emplace_back(count, extension.empty() ? "without extension" : extension);
        total += count;
    }
    std::stable_sort(counts.begin(), counts.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    constexpr size_t kShown = 6;
    std::string text = std::to_string(total) + (total == 1 ? " file" : " files") + " that " +
                       (total == 1 ? "is" : "are") + " not .jpg, .jpeg or .png (";
    for (size_t i = 0; i < counts.size() && i < kShown; ++i) {
        text += (i ? ", " : "") + std::to_string(counts[i].first) + " " + counts[i].second;
    }
    return text + (counts.size() > kShown ? ", ...)" : ")");
}

}  // namespace

std::vector<std::string> collectImages(const std::vector<std::string>& arguments, std::vector<std::string>* problems) {
    auto isImage = [](const fs::path& p) {
        const std::string ext = lowered(p.extension().string());
        return ext == ".jpg" || ext == ".jpeg" || ext == ".png";
    };
    std::vector<std::string> files;
    for (const auto& argument : arguments) {
        std::error_code ec;
        if (fs::is_directory(argument, ec)) {
            std::vector<std::string> found;
            std::map<std::string, size_t> skipped;
            for (fs::recursive_directory_iterator it(argument, fs::directory_options::skip_permission_denied, ec), end;
                 !ec && it != end; it.increment(ec)) {
                if (!it->is_regular_file(ec)) continue;  // the next increment clears ec
                if (isImage(it->path())) found.push_back(it->path().string());
                else ++skipped[lowered(it->path().extension().string())];
            }
            if (ec) problems->push_back("cannot list " + argument + ": " + ec.message());
            else if (found.empty()) {
                problems->push_back("no JPEG or PNG images in " + argument +
                                    (skipped.empty() ? "" : ", only " + skippedFiles(skipped)));
            } else if (!skipped.empty()) {
                problems->push_back(argument + ": skipped " + skippedFiles(skipped));
            }
            std::sort(found.begin(), found.end());
            files.insert(files.end(), found.begin(), found.end());
        } else if (fs::is_regular_file(argument, ec)) {
            files.push_back(argument);
        } else if (fs::exists(argument, ec)) {
            // A device or a pipe (/dev/zero, a FIFO) would be read without end.
            problems->push_back("not a regular file: " + argument);
        } else {
            problems->push_back("no such file or directory: " + argument);
        }
    }
    return files;
}

}  // namespace vqfe
