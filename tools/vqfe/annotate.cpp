#include "tools/vqfe/annotate.h"

#include <filesystem>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace vqfe {
namespace {

const cv::Scalar kFaceColour(60, 220, 60);      // BGR
const cv::Scalar kPetColour(220, 160, 40);
const cv::Scalar kSkeletonColour(40, 40, 230);
const cv::Scalar kSaliencyColour(0, 200, 255);
const cv::Scalar kMattingColour(255, 0, 200);

cv::Point toPixel(const cv::Mat& canvas, float x, float y) {
    return {cvRound(x * canvas.cols), cvRound(y * canvas.rows)};
}

void drawRect(cv::Mat& canvas, const CRect* rect, const cv::Scalar& colour) {
    if (rect == nullptr) return;
    // y_vantor is the top edge measured from the top; y is the flipped value.
    cv::rectangle(canvas, toPixel(canvas, rect->x, rect->y_vantor),
                  toPixel(canvas, rect->x + rect->width, rect->y_vantor + rect->height), colour, 2);
}

void drawPoints(cv::Mat& canvas, CFloat2* const* points, size_t count, const cv::Scalar& colour) {
    const int radius = count > 20 ? 1 : 3;  // dense landmark sets stay readable
    for (size_t i = 0; i < count; ++i) cv::circle(canvas, toPixel(canvas, points[i]->x, points[i]->y), radius, colour, cv::FILLED);
}

// A face's outlines (eyes, eyebrows, lips): polylines through the points, closed where
// they go round.
void drawOutlines(cv::Mat& canvas, const CFaceExtra& extra, const cv::Scalar& colour) {
    auto polyline = [&](CFloat2* const* points, size_t count, bool closed) {
        std::vector<cv::Point> line;
        for (size_t i = 0; i < count; ++i) line.push_back(toPixel(canvas, points[i]->x, points[i]->y));
        if (line.size() > 1) cv::polylines(canvas, line, closed, colour, 1, cv::LINE_AA);
    };
    polyline(extra.eye_left, extra.n_eye_left, true);
    polyline(extra.eye_right, extra.n_eye_right, true);
    polyline(extra.eyebrow_left, extra.n_eyebrow_left, false);
    polyline(extra.eyebrow_right, extra.n_eyebrow_right, false);
    polyline(extra.lips, extra.n_lips, true);
}

// One person's skeleton: the detected points, and for the 17 COCO key points the bones
// between two detected points.
void drawSkeleton(cv::Mat& canvas, const CSkeletonInfo& person, const cv::Scalar& colour) {
    static const int kBones[][2] = {{0, 1},  {0, 2},   {1, 3},   {2, 4},   {5, 6},   {5, 7},   {7, 9},   {6, 8},  {8, 10},
                                    {5, 11}, {6, 12}, {11, 12}, {11, 13}, {13, 15}, {12, 14}, {14, 16}};
    const size_t n = person.n_key_points_xy;
    auto detected = [&](size_t i) { return i < n && (i >= person.n_key_points_detected || person.key_points_detected[i] != 0); };
    if (n == 17) {
        for (const auto& bone : kBones) {
            const size_t a = static_cast<size_t>(bone[0]), b = static_cast<size_t>(bone[1]);
            if (!detected(a) || !detected(b)) continue;
            cv::line(canvas, toPixel(canvas, person.key_points_xy[a]->x, person.key_points_xy[a]->y),
                     toPixel(canvas, person.key_points_xy[b]->x, person.key_points_xy[b]->y), colour, 2, cv::LINE_AA);
        }
    }
    for (size_t i = 0; i < n; ++i) {
        if (detected(i)) cv::circle(canvas, toPixel(canvas, person.key_points_xy[i]->x, person.key_points_xy[i]->y), 3, colour, cv::FILLED);
    }
}

// Tints the pixels where a byte mask (maskWidth x maskHeight, 0..255) is set.
void overlayMask(cv::Mat& canvas, const uint32_t* mask, size_t count, int maskWidth, int maskHeight,
                 const cv::Scalar& colour) {
    if (mask == nullptr || maskWidth <= 0 || maskHeight <= 0 || count < size_t(maskWidth) * maskHeight) return;
    cv::Mat alpha(maskHeight, maskWidth, CV_8UC1);
    for (int i = 0; i < maskWidth * maskHeight; ++i) alpha.data[i] = static_cast<uint8_t>(std::min<uint32_t>(mask[i], 255));
    cv::resize(alpha, alpha, canvas.size(), 0, 0, cv::INTER_LINEAR);
    cv::Mat tint(canvas.size(), canvas.type(), colour);
    cv::Mat blended;
    cv::addWeighted(canvas, 0.55, tint, 0.45, 0, blended);
    blended.copyTo(canvas, alpha > 127);
}

}  // namespace

bool drawAnnotations(const LoadedImage& image, const BlobMap& blobs, const std::string& dir, std::string* error) {
    const auto& buffer = *image.buffer;
    cv::Mat rgba(buffer.height, buffer.width, CV_8UC4, buffer.data);
    cv::Mat canvas;
    cv::cvtColor(rgba, canvas, cv::COLOR_RGBA2BGR);
    DecodedBlobs decoded(blobs);

    if (const auto* matting = decoded.matting()) {
        overlayMask(canvas, matting->maskdata, matting->n_maskdata, matting->width, matting->height, kMattingColour);
    }
    if (const auto* saliency = decoded.saliency()) {
        overlayMask(canvas, saliency->alpha, saliency->n_alpha, static_cast<int>(saliency->img_w),
                    static_cast<int>(saliency->img_h), kSaliencyColour);
        if (saliency->valid) {
            const float left = saliency->bboxcenterx - saliency->bboxwidth / 2;
            const float top = saliency->bboxcentery - saliency->bboxheight / 2;
            cv::rectangle(canvas, toPixel(canvas, left, top),
                          toPixel(canvas, left + saliency->bboxwidth, top + saliency->bboxheight), kSaliencyColour, 2);
        }
    }
    if (const auto* faces = decoded.faces()) {
        for (size_t i = 0; i < faces->n_m_facebaseinfos; ++i) {
            drawRect(canvas, faces->m_facebaseinfos[i]->rect, kFaceColour);
            drawPoints(canvas, faces->m_facebaseinfos[i]->points_array, faces->m_facebaseinfos[i]->n_points_array,
                       kFaceColour);
        }
        for (size_t i = 0; i < faces->n_m_faceextrainfos; ++i) drawOutlines(canvas, *faces->m_faceextrainfos[i], kFaceColour);
    }
    if (const auto* pets = decoded.pets()) {
        for (size_t i = 0; i < pets->n_m_facepetinfos; ++i) {
            drawRect(canvas, pets->m_facepetinfos[i]->rect, kPetColour);
            drawPoints(canvas, pets->m_facepetinfos[i]->points_array, pets->m_facepetinfos[i]->n_points_array, kPetColour);
        }
    }
    if (const auto* skeleton = decoded.skeleton()) {
        for (size_t i = 0; i < skeleton->n_m_skeletoninfos; ++i) drawSkeleton(canvas, *skeleton->m_skeletoninfos[i], kSkeletonColour);
    }
    int line = 0;
    for (const auto& [label, score] : decoded.topLabels(3)) {
        char text[160];
        std::snprintf(text, sizeof text, "%s %.2f", label.c_str(), score);
        const cv::Point origin(8, 22 + 22 * line++);
        cv::putText(canvas, text, origin, cv::FONT_HERSHEY_SIMPLEX, 0.6, cv::Scalar(0, 0, 0), 3, cv::LINE_AA);
        cv::putText(canvas, text, origin, cv::FONT_HERSHEY_SIMPLEX, 0.6, cv::Scalar(255, 255, 255), 1, cv::LINE_AA);
    }

    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    const std::string out = (std::filesystem::path(dir) / std::filesystem::path(image.path).stem()).string() + ".png";
    bool written = false;
    try {
        written = cv::imwrite(out, canvas);
    } catch (const cv::Exception&) {
        written = false;
    }
    if (!written) *error = "cannot write " + out;
    return written;
}

}  // namespace vqfe
