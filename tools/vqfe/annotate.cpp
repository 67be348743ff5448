#include "tools/vqfe/annotate.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace vqfe {
namespace {

const cv::Scalar kFaceColour(60, 220, 60);      // BGR
const cv::Scalar kPetColour(220, 160, 40);
const cv::Scalar kSkeletonColours[] = {{255, 255, 0}, {0, 140, 255}, {255, 80, 80}, {120, 255, 120}};  // one per person
const cv::Scalar kSaliencyColour(0, 200, 255);
const cv::Scalar kMattingColour(255, 0, 200);
const cv::Scalar kIrisColour(0, 255, 255);
const cv::Scalar kPupilColour(0, 0, 255);

cv::Point toPixel(const cv::Mat& canvas, float x, float y) {
    return {cvRound(x * canvas.cols), cvRound(y * canvas.rows)};
}

// Text size for the picture: readable on a 300-pixel photo, growing with larger ones.
double textScale(const cv::Mat& canvas) { return std::max(0.5, std::min(canvas.cols, canvas.rows) / 900.0); }

int textThickness(const cv::Mat& canvas) { return std::max(1, cvRound(textScale(canvas) * 1.5)); }

// White text with a dark outline, legible on any background.
void drawText(cv::Mat& canvas, const std::string& text, cv::Point origin) {
    const double scale = textScale(canvas);
    cv::putText(canvas, text, origin, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(0, 0, 0), textThickness(canvas) + 2, cv::LINE_AA);
    cv::putText(canvas, text, origin, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(255, 255, 255), textThickness(canvas), cv::LINE_AA);
}

// The size drawText covers above its origin; *baseline is what it covers below.
cv::Size textSize(const cv::Mat& canvas, const std::string& text, int* baseline) {
    return cv::getTextSize(text, cv::FONT_HERSHEY_SIMPLEX, textScale(canvas), textThickness(canvas) + 2, baseline);
}

// Captions beside boxes, one line per part, placed where they cover no caption placed
// before: above the box, below it, then further up or down. A caption moved away from its
// box is tied to it by a thin line.
class CaptionPlacer {
public:
    explicit CaptionPlacer(cv::Mat& canvas) : canvas_(canvas) {}

    void draw(const CRect* rect, const std::vector<std::string>& lines, const cv::Scalar& colour) {
        if (rect == nullptr || lines.empty()) return;
        int width = 0, lineHeight = 0, baseline = 0;
        for (const std::string& line : lines) {
            const cv::Size size = textSize(canvas_, line, &baseline);
            width = std::max(width, size.width);
            lineHeight = std::max(lineHeight, size.height + baseline + 2);
        }
        const cv::Size block(width, lineHeight * static_cast<int>(lines.size()));
        const cv::Point topLeft = toPixel(canvas_, rect->x, rect->y_vantor);
        const cv::Point bottomRight = toPixel(canvas_, rect->x + rect->width, rect->y_vantor + rect->height);
        const int x = std::max(2, std::min(topLeft.x, canvas_.cols - width - 2));
        cv::Rect place;
        bool moved = false;
        for (int step = 0; step < 12 && !fits(place); ++step) {
            const int shift = (step / 2) * lineHeight;
            const int y = step % 2 == 0 ? topLeft.y - 4 - block.height - shift : bottomRight.y + 4 + shift;
            place = cv::Rect(x, std::max(0, std::min(y, canvas_.rows - block.height)), block.width, block.height);
            moved = step > 1;
        }
        taken_.push_back(place);
        if (moved) {
            const cv::Point anchor(x + 2, place.y < topLeft.y ? place.y + place.height : place.y);
            cv::line(canvas_, anchor, {topLeft.x, place.y < topLeft.y ? topLeft.y : bottomRight.y}, colour, 1, cv::LINE_AA);
        }
        for (size_t i = 0; i < lines.size(); ++i) {
            drawText(canvas_, lines[i], {place.x, place.y + lineHeight * static_cast<int>(i + 1) - baseline - 2});
        }
    }

    // Keeps captions out of an area drawn on later.
    void reserve(const cv::Rect& area) { taken_.push_back(area); }

private:
    bool fits(const cv::Rect& place) const {
        if (place.area() == 0) return false;
        for (const cv::Rect& other : taken_) {
            if ((place & other).area() > 0) return false;
        }
        return true;
    }

    cv::Mat& canvas_;
    std::vector<cv::Rect> taken_;
};

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

// Each iris: its outline, a circle through the four edge points around the centre, and the
// pupil (the centre) as a dot. Lists other than the five points are left out.
void drawIrises(cv::Mat& canvas, const CFaceExtra& extra) {
    auto iris = [&](CFloat2* const* points, size_t count) {
        if (count != 5) return;
        const cv::Point2f centre(points[0]->x * canvas.cols, points[0]->y * canvas.rows);
        float radius = 0;
        for (size_t i = 1; i < 5; ++i) {
            radius += std::hypot(points[i]->x * canvas.cols - centre.x, points[i]->y * canvas.rows - centre.y) / 4;
        }
        const cv::Point pupil(cvRound(centre.x), cvRound(centre.y));
        if (radius >= 1) cv::circle(canvas, pupil, cvRound(radius), kIrisColour, 1, cv::LINE_AA);
        cv::circle(canvas, pupil, std::max(1, cvRound(radius / 3)), kPupilColour, cv::FILLED, cv::LINE_AA);
    };
    iris(extra.left_iris, extra.n_left_iris);
    iris(extra.right_iris, extra.n_right_iris);
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
    const int radius = std::max(3, cvRound(4 * textScale(canvas)));
    for (size_t i = 0; i < n; ++i) {
        if (!detected(i)) continue;
        const cv::Point joint = toPixel(canvas, person.key_points_xy[i]->x, person.key_points_xy[i]->y);
        cv::circle(canvas, joint, radius + 1, cv::Scalar(0, 0, 0), cv::FILLED, cv::LINE_AA);
        cv::circle(canvas, joint, radius, colour, cv::FILLED, cv::LINE_AA);
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
    cv::addWeighted(canvas, 0.75, tint, 0.25, 0, blended);  // light, so the points on it stay visible
    const cv::Mat inside = alpha > 127;
    blended.copyTo(canvas, inside);
    std::vector<std::vector<cv::Point>> outline;
    cv::findContours(inside, outline, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    cv::drawContours(canvas, outline, -1, colour, 2, cv::LINE_AA);
}

std::string petCaption(const CFacePetInfo& pet) {
    const char* type = pet.face_pet_type == 1 ? "cat" : pet.face_pet_type == 2 ? "dog" : nullptr;
    if (type == nullptr || pet.score <= 0) return type == nullptr ? "" : type;
    char text[64];
    std::snprintf(text, sizeof text, "%s %.2f", type, pet.score);
    return text;
}

}  // namespace

std::vector<std::string> labelLines(const DecodedBlobs& decoded) {
    std::vector<std::string> lines;
    bool people = false;
    for (const auto& entry : decoded.topLabels(3)) {
        lines.push_back(DecodedBlobs::shownText(entry));
        people = people || entry.first == "people";
    }
    if (const auto cue = decoded.peopleCue(); cue && !people && DecodedBlobs::shown(*cue)) {
        char text[32];
        std::snprintf(text, sizeof text, "people %.2f", *cue);
        lines.push_back(text);
    }
    for (const auto& entry : decoded.extraClasses()) lines.push_back(DecodedBlobs::shownText(entry));
    return lines;
}

std::string drawnPictureName(const std::string& imagePath, const std::string& assetId) {
    return std::filesystem::path(imagePath).stem().string() + "-" + assetId.substr(0, 8) + ".png";
}

bool drawAnnotations(const LoadedImage& image, const BlobMap& blobs, const std::string& dir, std::string* error) {
    const auto& buffer = *image.buffer;
    cv::Mat rgba(buffer.height, buffer.width, CV_8UC4, buffer.data);
    cv::Mat canvas;
    cv::cvtColor(rgba, canvas, cv::COLOR_RGBA2BGR);
    DecodedBlobs decoded(blobs);
    CaptionPlacer placer(canvas);
    // The labels go top left, over everything; captions keep out of their corner.
    const std::vector<std::string> labels = labelLines(decoded);
    const int lineHeight = cvRound(36 * textScale(canvas));
    int labelsWidth = 0;
    for (const std::string& text : labels) {
        int baseline = 0;
        labelsWidth = std::max(labelsWidth, textSize(canvas, text, &baseline).width);
    }
    if (!labels.empty()) placer.reserve({0, 0, labelsWidth + 12, lineHeight * static_cast<int>(labels.size()) + lineHeight / 3});

    if (const auto* matting = decoded.matting()) {
        overlayMask(canvas, matting->maskdata, matting->n_maskdata, matting->width, matting->height, kMattingColour);
    }
    if (const auto* pets = decoded.petMatting(); pets && pets->m_petmattinginfo) {
        const CPetMattingInfo& info = *pets->m_petmattinginfo;
        if (info.maskcount > 0) overlayMask(canvas, info.mask0, info.n_mask0, info.maskwidth, info.maskheight, kPetColour);
        if (info.maskcount > 1) overlayMask(canvas, info.mask1, info.n_mask1, info.maskwidth, info.maskheight, kPetColour);
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
    // The skeleton first: the face details drawn over its head points stay visible.
    if (const auto* skeleton = decoded.skeleton()) {
        for (size_t i = 0; i < skeleton->n_m_skeletoninfos; ++i) {
            drawSkeleton(canvas, *skeleton->m_skeletoninfos[i], kSkeletonColours[i % std::size(kSkeletonColours)]);
        }
    }
    if (const auto* faces = decoded.faces()) {
        for (size_t i = 0; i < faces->n_m_facebaseinfos; ++i) {
            drawRect(canvas, faces->m_facebaseinfos[i]->rect, kFaceColour);
            drawPoints(canvas, faces->m_facebaseinfos[i]->points_array, faces->m_facebaseinfos[i]->n_points_array,
                       kFaceColour);
        }
        for (size_t i = 0; i < faces->n_m_faceextrainfos; ++i) {
            drawOutlines(canvas, *faces->m_faceextrainfos[i], kFaceColour);
            drawIrises(canvas, *faces->m_faceextrainfos[i]);
        }
        const auto captions = decoded.faceCaptions();
        for (size_t i = 0; i < captions.size(); ++i) placer.draw(faces->m_facebaseinfos[i]->rect, captions[i], kFaceColour);
    }
    if (const auto* pets = decoded.pets()) {
        for (size_t i = 0; i < pets->n_m_facepetinfos; ++i) {
            drawRect(canvas, pets->m_facepetinfos[i]->rect, kPetColour);
            drawPoints(canvas, pets->m_facepetinfos[i]->points_array, pets->m_facepetinfos[i]->n_points_array, kPetColour);
            const std::string caption = petCaption(*pets->m_facepetinfos[i]);
            if (!caption.empty()) placer.draw(pets->m_facepetinfos[i]->rect, {caption}, kPetColour);
        }
    }
    int line = 0;
    for (const std::string& text : labels) drawText(canvas, text, {8, lineHeight * ++line});

    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    const std::string out = (std::filesystem::path(dir) / drawnPictureName(image.path, image.assetId)).string();
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
