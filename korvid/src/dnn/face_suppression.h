// Merging the faces found in the whole image and its tiles into one list: greedy
// non-maximum suppression, best first.
#pragma once

#include <vector>

#include "dnn/face_detector.h"

namespace kv {

// The faces of found that survive, best first (ties in found's order, so the same image
// gives the same faces). A face is dropped when it overlaps a kept one by IoU above 0.3 or
// lies mostly (above 60 % of its area) inside it or it inside the face (a tile's view of
// part of a face found whole elsewhere).
std::vector<FaceDetection> suppressOverlappingFaces(const std::vector<FaceDetection>& found);

}  // namespace kv
