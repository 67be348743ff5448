#include "dnn/face_chip.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace kv {

namespace {

// face-api's dlib alignment: side = eye-to-mouth distance / 0.45, the reference point
// (centroid of both eyes and the mouth) at (0.5, 0.43) of the crop.
constexpr double kEyeMouthPerSide = 0.45;
constexpr double kAnchorX = 0.5, kAnchorY = 0.43;
// Without a mouth, the eye-to-mouth distance as a share of the detector's box height: the
// median over the quality photos' faces with a mesh is 0.47 (0.44 to 0.53).
constexpr double kEyeMouthPerBox = 0.47;

}  // namespace

cv::Mat faceChip(const cv::Mat& bgr, const FacePoints& face, int side) {
    // Points a network put far outside the image (or NaN) are not used: the crop's
    // arithmetic stays within int range.
    const cv::Rect2f near(-float(bgr.cols), -float(bgr.rows), 3.f * bgr.cols, 3.f * bgr.rows);
    auto usable = [&](cv::Point2f p) { return std::isfinite(p.x) && std::isfinite(p.y) && near.contains(p); };
    const bool hasEyes = face.hasEyes && usable(face.leftEye) && usable(face.rightEye) && face.leftEye != face.rightEye;
    const bool hasMouth = face.hasMouth && usable(face.mouth);
    const cv::Point2f boxCentre(face.box.x + face.box.width * 0.5f, face.box.y + face.box.height * 0.5f);
    const cv::Point2f leftEye = hasEyes ? face.leftEye : boxCentre + cv::Point2f(-face.box.width * 0.2f, -face.box.height * 0.1f);
    const cv::Point2f rightEye = hasEyes ? face.rightEye : boxCentre + cv::Point2f(face.box.width * 0.2f, -face.box.height * 0.1f);
    const cv::Point2f eyes = (leftEye + rightEye) * 0.5f;
    const double angle = std::atan2(rightEye.y - leftEye.y, rightEye.x - leftEye.x);
    const double c = std::cos(angle), s = std::sin(angle);
    cv::Point2f mouth = face.mouth;
    if (!hasMouth) {
        // Perpendicular to the eye line, towards the chin.
        const double d = kEyeMouthPerBox * face.box.height;
        mouth = eyes + cv::Point2f(float(-s * d), float(c * d));
    }
    auto dist = [](cv::Point2f a, cv::Point2f b) { return std::hypot(double(a.x - b.x), double(a.y - b.y)); };
    const double eyeMouth = (dist(leftEye, mouth) + dist(rightEye, mouth)) / 2;
    const double size = std::max(eyeMouth / kEyeMouthPerSide, 4.0);
    const cv::Point2f ref = (leftEye + rightEye + mouth) * (1.f / 3.f);

    // Image point p -> chip: turn by -angle about ref, scale by side / size, move ref to the anchor.
    const double scale = side / size;
    cv::Mat m = (cv::Mat_<double>(2, 3) << c * scale, s * scale, 0, -s * scale, c * scale, 0);
    m.at<double>(0, 2) = kAnchorX * side - (m.at<double>(0, 0) * ref.x + m.at<double>(0, 1) * ref.y);
    m.at<double>(1, 2) = kAnchorY * side - (m.at<double>(1, 0) * ref.x + m.at<double>(1, 1) * ref.y);
    // A large face is first shrunk to twice the chip's resolution with area averaging (a
    // bilinear warp alone would alias); the warp then starts from the shrunk pixels.
    cv::Mat source = bgr;
    if (scale < 0.5) {
        const double half = size * 0.75;  // covers the turned square
        const cv::Rect around(cv::Point(int(std::floor(ref.x - half)), int(std::floor(ref.y - half))),
                              cv::Point(int(std::ceil(ref.x + half)), int(std::ceil(ref.y + half))));
        const cv::Rect inside = around & cv::Rect(0, 0, bgr.cols, bgr.rows);
        if (inside.area() > 0) {
            const cv::Size small(std::max(1, int(std::lround(inside.width * scale * 2))),
                                 std::max(1, int(std::lround(inside.height * scale * 2))));
            cv::resize(bgr(inside), source, small, 0, 0, cv::INTER_AREA);
            // small pixel q = (p - inside.tl) * f, so p = q / f + inside.tl.
            const double fx = double(small.width) / inside.width, fy = double(small.height) / inside.height;
            for (int r = 0; r < 2; ++r) {
                m.at<double>(r, 2) += m.at<double>(r, 0) * inside.x + m.at<double>(r, 1) * inside.y;
                m.at<double>(r, 0) /= fx;
                m.at<double>(r, 1) /= fy;
            }
        }
    }
    cv::Mat chip;
    cv::warpAffine(source, chip, m, cv::Size(side, side), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    return chip;
}

cv::Mat paddedFaceCrop(const cv::Mat& bgr, const FacePoints& face, int side) {
    const cv::Rect2f box = face.landmarkBox.area() > 0 ? face.landmarkBox : cv::Rect2f(face.box);
    const cv::Rect2f grown(box.x - box.width * 0.1f, box.y - box.height * 0.1f, box.width * 1.2f, box.height * 1.2f);
    const cv::Rect inside = cv::Rect(cv::Point(int(std::floor(grown.x)), int(std::floor(grown.y))),
                                     cv::Point(int(std::ceil(grown.br().x)), int(std::ceil(grown.br().y)))) &
                            cv::Rect(0, 0, bgr.cols, bgr.rows);
    if (inside.area() == 0) return cv::Mat(side, side, CV_8UC3, cv::Scalar::all(0));
    const int longSide = std::max(inside.width, inside.height);
    cv::Mat square;
    cv::copyMakeBorder(bgr(inside), square, (longSide - inside.height) / 2, (longSide - inside.height + 1) / 2,
                       (longSide - inside.width) / 2, (longSide - inside.width + 1) / 2, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    cv::Mat crop;
    cv::resize(square, crop, cv::Size(side, side), 0, 0, longSide > side ? cv::INTER_AREA : cv::INTER_LINEAR);
    return crop;
}

}  // namespace kv
