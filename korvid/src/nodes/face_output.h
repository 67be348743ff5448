// Outputs of the face family shared between its nodes: the face detector's buffer with
// the pixel-space detections that the verification, attribute and relation nodes reuse.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "Vantor/FaceBuffers.h"
#include "dnn/face_mesh.h"
#include "graph/node.h"

namespace kv {

struct DetectedFace {
    cv::Rect box;                  // pixels of the upright image
    float score = 0.f;
    bool hasEyes = false;
    cv::Point2f leftEye, rightEye; // eye centres, image left first (valid when hasEyes)
    bool hasMesh = false;          // the face mesh fitted (landmarks valid)
    FaceLandmarks landmarks;
};

class FaceOutput : public BufferOutput<Vantor::FaceBuffer> {
public:
    FaceOutput() : BufferOutput<Vantor::FaceBuffer>({static_cast<int32_t>(Vantor::AlgorithmType::Face)}) {}
    cv::Mat bgr;
    std::vector<DetectedFace> faces;
};

// A grey face crop of side x side pixels, rotated so that the eyes are level when they
// were found, histogram-equalised.
cv::Mat normalisedFaceCrop(const cv::Mat& bgr, const DetectedFace& face, int side);

}  // namespace kv
