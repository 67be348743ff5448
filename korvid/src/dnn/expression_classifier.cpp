#include "dnn/expression_classifier.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "network_declarations.h"

namespace kv {

namespace {
constexpr int kSide = declared::qm_face_attribute_exp.width;
}

const NetworkShape& ExpressionClassifier::shape() {
    static const NetworkShape s = declaredShape(declared::qm_face_attribute_exp, {{declared::qm_face_attribute_exp_out::probs, kExpressions}});
    return s;
}

std::array<float, kExpressions> ExpressionClassifier::classify(const cv::Mat& gray, const cv::Rect& face) const {
    // The square around the face box, the part outside the image repeated from its border.
    const int side = std::max(face.width, face.height);
    const cv::Rect square(face.x + face.width / 2 - side / 2, face.y + face.height / 2 - side / 2, side, side);
    const cv::Rect inside = square & cv::Rect(0, 0, gray.cols, gray.rows);
    cv::Mat crop, resized;
    cv::copyMakeBorder(gray(inside), crop, inside.y - square.y, square.br().y - inside.br().y, inside.x - square.x,
                       square.br().x - inside.br().x, cv::BORDER_REPLICATE);
    cv::resize(crop, resized, cv::Size(kSide, kSide), 0, 0, cv::INTER_AREA);
    const cv::Mat probs = network_->forward(inputBlob(declared::qm_face_attribute_exp, resized))[0];
    std::array<float, kExpressions> out{};
    std::copy(probs.ptr<float>(), probs.ptr<float>() + kExpressions, out.begin());
    return out;
}

}  // namespace kv
