// Turning the framework's image input into the upright 8-bit BGR image the analyses use.
//
// Pixel formats (VantorImageBuffer::format):
//   -1 AUTO and 0 RGBA8888: 4 bytes R,G,B,A      1 BGRA8888: 4 bytes B,G,R,A
//    2 RGB888: 3 bytes R,G,B                     3 BGR888: 3 bytes B,G,R
//    4 GRAY8: 1 byte                             8 ARGB8888: 4 bytes A,R,G,B
//    5 NV21, 6 NV12: a Y plane of height rows, then height/2 rows of interleaved
//      V,U (NV21) or U,V (NV12); each row is stride bytes (width when stride is 0)
//    7 I420: a Y plane (stride), then U and V planes of height/2 rows of stride/2 bytes
//   The YUV formats need an even width and height. Alpha is ignored.
// Rotation (VantorImageBuffer::rotation) is how far the stored image must turn clockwise
// to stand upright: 0, 90, 180 or 270 degrees for codes 0 to 3. Results are reported in
// the coordinates of the upright image.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "Vantor/VantorAlgorithmInput.h"

namespace kv {

constexpr int kMaxImageSide = 16384;

// The upright image. Throws Error(INVALID_FORMAT) with a description when the input is not
// an image, a value is out of range, or data is shorter than needed.
cv::Mat toUprightBgr(const Vantor::VantorAlgorithmInput& input);

}  // namespace kv
