// Small helpers shared by the analysis nodes: pixel geometry as fractions of the image,
// and splitting of list-valued parameters.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "Glintcore/Geometry.h"

namespace kv {

// A pixel rectangle or point as fractions of the image size.
inline Glintcore::Rect normalised(const cv::Rect& r, const cv::Size& image) {
    return Glintcore::Rect{float(r.x) / image.width, float(r.y) / image.height, float(r.width) / image.width,
                           float(r.height) / image.height};
}
inline Glintcore::Vector2f normalised(const cv::Point2f& p, const cv::Size& image) {
    return Glintcore::Vector2f{p.x / image.width, p.y / image.height};
}

// The parts of text between separators. Empty parts are kept (a label list may hold an
// empty label) unless skipEmpty; an empty text has no parts.
inline std::vector<std::string> splitText(const std::string& text, char separator, bool skipEmpty = false) {
    std::vector<std::string> parts;
    if (text.empty()) return parts;
    for (size_t start = 0;;) {
        size_t end = text.find(separator, start);
        if (end == std::string::npos) end = text.size();
        if (!(skipEmpty && end == start)) parts.push_back(text.substr(start, end - start));
        if (end == text.size()) break;
        start = end + 1;
    }
    return parts;
}

}  // namespace kv
