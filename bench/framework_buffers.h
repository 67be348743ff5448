// Framework result buffers of realistic size for the codec and engine benchmarks, with
// deterministic contents:
// - a face buffer of five faces: 106 landmarks with visibility each, one extra per face
//   (eyes 22 + 22, eyebrows 13 + 13, lips 64, irises 20 + 20 points), one mouth, teeth
//   and face mask of 64 x 64 bytes per face, one occlusion per face;
// - a classification buffer (kind 121): one information slot over 208 classes, one
//   feature of 1280 floats, the 208 labels and thresholds of the built-in graph;
// - a matting buffer with a 512 x 512 mask.
// The caller owns what it gets; the buffers are read only by the encoders.
#pragma once

#include <memory>

#include "Vantor/Vantor.h"

namespace VQFeature {
namespace bench {

std::unique_ptr<Vantor::FaceBuffer> makeFaceBuffer();
std::unique_ptr<Vantor::NHClassificationBuffer> makeClassificationBuffer();
std::unique_ptr<Vantor::MattingBuffer> makeMattingBuffer();

}  // namespace bench
}  // namespace VQFeature
