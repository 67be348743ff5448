#include "dnn/face_mesh.h"

#include <algorithm>
#include <cmath>

#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include "network_declarations.h"

namespace kv {

namespace {

constexpr int kSide = declared::qm_face_mesh.width;
constexpr int kLandmarks = 468;
constexpr double kCropScale = 1.5;

// Landmark indices of the mesh topology. "Right" is the person's right (the image left).
const int kRightEye[] = {33, 246, 161, 160, 159, 158, 157, 173, 133, 155, 154, 153, 145, 144, 163, 7};
const int kLeftEye[] = {263, 466, 388, 387, 386, 385, 384, 398, 362, 382, 381, 380, 374, 373, 390, 249};
const int kRightEyebrow[] = {156, 70, 63, 105, 66, 107, 55, 193};
const int kLeftEyebrow[] = {383, 300, 293, 334, 296, 336, 285, 417};
const int kLips[] = {61, 185, 40, 39, 37, 0, 267, 269, 270, 409, 291, 375, 321, 405, 314, 17, 84, 181, 91, 146};
constexpr int kRightEyeOuter = 33, kLeftEyeOuter = 263, kForehead = 10, kChin = 152;
constexpr int kRightEyeInner = 133, kLeftEyeInner = 362;
// The iris network: its input side, the eye square's side per distance of the eye corners,
// and its five points (x, y, depth in input pixels).
constexpr int kIrisSide = declared::qm_face_iris.width;
constexpr float kEyeEnlarge = 2.3f;
constexpr int kIrisPoints = 5;

// The jaw line from the image-left temple over the chin to the image-right temple,
// resampled to the 33 contour points of the 106-point layout.
const int kJaw[] = {127, 234, 93, 132, 58, 172, 136, 150, 149, 176, 148, 152, 377, 400, 378, 379, 365, 397, 288, 361, 323, 454, 356};
// The rest of the layout in order (after the contour): upper eyebrow edges (33-42), nose
// bridge (43-46), nose bottom (47-51), eyes from their image-left corner over the top
// (52-63), lower eyebrow edges (64-71), upper and lower eyelid centres (72-73, 75-76; 74 and
// 77 are the eye centres), nose wings (78-83), outer lips (84-95) and inner lips (96-103)
// from the image-left corner over the top; -1 marks an eye centre.
const int kLayout[] = {70,  63,  105, 66,  107, 336, 296, 334, 293, 300,                 // 33-42
                       168, 6,   197, 195, 98,  97,  2,   326, 327,                       // 43-51
                       33,  160, 158, 133, 153, 144, 362, 385, 387, 263, 373, 380,        // 52-63
                       46,  53,  52,  65,  295, 282, 283, 276,                            // 64-71
                       159, 145, -1,  386, 374, -1,                                       // 72-77
                       217, 126, 209, 437, 355, 429,                                      // 78-83
                       61,  40,  37,  0,   267, 270, 291, 321, 314, 17,  84,  91,         // 84-95
                       78,  81,  13,  311, 308, 402, 14,  178};                           // 96-103

// count points evenly spaced along the polyline through line.
std::vector<cv::Point2f> resample(const std::vector<cv::Point2f>& line, size_t count) {
    std::vector<double> at{0};
    for (size_t i = 1; i < line.size(); ++i) at.push_back(at.back() + cv::norm(line[i] - line[i - 1]));
    std::vector<cv::Point2f> out;
    size_t seg = 1;
    for (size_t k = 0; k < count; ++k) {
        const double target = at.back() * double(k) / double(count - 1);
        while (seg + 1 < line.size() && at[seg] < target) ++seg;
        const double span = at[seg] - at[seg - 1];
        const float t = span > 0 ? static_cast<float>((target - at[seg - 1]) / span) : 0.f;
        out.push_back(line[seg - 1] + t * (line[seg] - line[seg - 1]));
    }
    return out;
}

cv::Point2f mean(const std::vector<cv::Point2f>& points) {
    cv::Point2f sum(0, 0);
    for (const cv::Point2f& p : points) sum += p;
    return sum / static_cast<float>(points.size());
}

double degrees(double radians) { return radians * 180.0 / CV_PI; }

template <size_t N>
std::vector<cv::Point2f> pick(const std::vector<cv::Point2f>& points, const int (&indices)[N]) {
    std::vector<cv::Point2f> out;
    for (int i : indices) out.push_back(points[static_cast<size_t>(i)]);
    return out;
}

}  // namespace

const NetworkShape& FaceMesh::shape() {
    using namespace declared::qm_face_mesh_out;
    static const NetworkShape s = declaredShape(declared::qm_face_mesh, {{mesh, kLandmarks * 3}, {face, 1}});
    return s;
}

const NetworkShape& FaceMesh::irisShape() {
    static const NetworkShape s = declaredShape(declared::qm_face_iris, {{declared::qm_face_iris_out::iris, kIrisPoints * 3}});
    return s;
}

// The iris of the eye between mesh points first and second, in image pixels: the network
// runs on the square around the two corners (kEyeEnlarge times as wide as their box) of the
// levelled crop. It was trained on the person's right eye; the left one is mirrored in and
// its points mirrored back.
std::vector<cv::Point2f> FaceMesh::iris(const cv::Mat& crop, const std::vector<cv::Point2f>& cropPoints, int first, int second,
                                        bool mirrored, const cv::Mat& toImage) const {
    const cv::Point2f a = cropPoints[static_cast<size_t>(first)], b = cropPoints[static_cast<size_t>(second)];
    const cv::Point2f centre = (a + b) * 0.5f;
    // A degenerate eye (corners on one spot) still gets a square of one crop pixel.
    const float side = std::max(1.f, kEyeEnlarge * std::max(std::abs(a.x - b.x), std::abs(a.y - b.y)));
    const cv::Point2f origin = centre - cv::Point2f(side / 2, side / 2);
    const double scale = kIrisSide / double(side);
    const cv::Matx23d toEye(scale, 0, -origin.x * scale, 0, scale, -origin.y * scale);
    cv::Mat eye;
    cv::warpAffine(crop, eye, toEye, cv::Size(kIrisSide, kIrisSide), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    if (mirrored) cv::flip(eye, eye, 1);
    const std::vector<cv::Mat> outs = iris_->forward(inputBlob(declared::qm_face_iris, eye));
    const float* v = outs[0].ptr<float>();
    std::vector<cv::Point2f> points;
    for (int k = 0; k < kIrisPoints; ++k) {
        const float x = v[k * 3] / kIrisSide, y = v[k * 3 + 1] / kIrisSide;
        points.push_back(origin + cv::Point2f((mirrored ? 1 - x : x) * side, y * side));
    }
    std::vector<cv::Point2f> image;
    cv::transform(points, image, toImage);
    return image;
}

FaceLandmarks FaceMesh::fit(const cv::Mat& bgr, const cv::Rect2f& box, cv::Point2f leftEye, cv::Point2f rightEye) const {
    // Image to crop: turn about the box centre so the eyes are level, scale 1.5 x the box's
    // longer side to the network's side, centre the box.
    const cv::Point2f centre(box.x + box.width / 2, box.y + box.height / 2);
    const double angle = degrees(std::atan2(rightEye.y - leftEye.y, rightEye.x - leftEye.x));
    const double side = std::max(1.0, kCropScale * std::max(box.width, box.height));
    cv::Mat toCrop = cv::getRotationMatrix2D(centre, angle, kSide / side);
    toCrop.at<double>(0, 2) += kSide / 2.0 - centre.x;
    toCrop.at<double>(1, 2) += kSide / 2.0 - centre.y;
    cv::Mat crop, toImage;
    cv::warpAffine(bgr, crop, toCrop, cv::Size(kSide, kSide), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    cv::invertAffineTransform(toCrop, toImage);

    const std::vector<cv::Mat> outs = network_->forward(inputBlob(declared::qm_face_mesh, crop));
    const float* mesh = outs[0].ptr<float>();
    FaceLandmarks out;
    out.presence = outs[1].ptr<float>()[0];
    std::vector<cv::Point2f> cropPoints(kLandmarks);
    for (int i = 0; i < kLandmarks; ++i) cropPoints[static_cast<size_t>(i)] = cv::Point2f(mesh[i * 3], mesh[i * 3 + 1]);
    cv::transform(cropPoints, out.points, toImage);

    // Head angles from the levelled crop's 3-D landmarks (depth in the units of x and y,
    // larger = farther): yaw from the outer eye corners, pitch from forehead to chin; roll is
    // the eye line in the image.
    auto at = [&](int i) { return cv::Point3f(mesh[i * 3], mesh[i * 3 + 1], mesh[i * 3 + 2]); };
    const cv::Point3f eyes = at(kLeftEyeOuter) - at(kRightEyeOuter);
    const cv::Point3f face = at(kChin) - at(kForehead);
    out.yaw = static_cast<float>(degrees(std::atan2(eyes.z, eyes.x)));
    out.pitch = static_cast<float>(degrees(std::atan2(face.z, face.y)));
    const cv::Point2f eyeLine = out.points[kLeftEyeOuter] - out.points[kRightEyeOuter];
    out.roll = static_cast<float>(degrees(std::atan2(eyeLine.y, eyeLine.x)));
    out.eyeLeft = pick(out.points, kRightEye);
    out.eyeRight = pick(out.points, kLeftEye);
    out.eyebrowLeft = pick(out.points, kRightEyebrow);
    out.eyebrowRight = pick(out.points, kLeftEyebrow);
    out.lips = pick(out.points, kLips);
    out.points106 = resample(pick(out.points, kJaw), 33);
    bool secondEye = false;
    for (int i : kLayout) {
        if (i >= 0) {
            out.points106.push_back(out.points[static_cast<size_t>(i)]);
        } else {
            out.points106.push_back(mean(secondEye ? out.eyeRight : out.eyeLeft));
            secondEye = true;
        }
    }
    if (iris_ && out.presence >= kMinPresence) {
        out.irisLeft = iris(crop, cropPoints, kRightEyeOuter, kRightEyeInner, false, toImage);
        out.irisRight = iris(crop, cropPoints, kLeftEyeOuter, kLeftEyeInner, true, toImage);
        out.points106.push_back(out.irisLeft[0]);  // 104, 105: the pupils, the iris centres
        out.points106.push_back(out.irisRight[0]);
    } else {
        out.points106.push_back(mean(out.eyeLeft));  // without irises, the eye centres
        out.points106.push_back(mean(out.eyeRight));
    }
    return out;
}

}  // namespace kv
