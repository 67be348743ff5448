// Cats and dogs: the object detector's, each cat with its face from the cat-face cascade run
// inside the cat's box. A model that is only the cascade (no detector in it) finds cat faces
// in the whole image instead, as the node did before it had a detector.
#pragma once

#include <memory>
#include <string>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/objdetect.hpp>

#include "dnn/object_detector.h"
#include "graph/execute_memo.h"
#include "model/model_blob.h"
#include "model/shared_cascade.h"

namespace kv {

struct PetDetection {
    int type = 1;                    // 1 cat, 2 dog
    float score = 0;                 // the detector's (cascade only: n / (n + 10) of its neighbours)
    std::optional<cv::Rect> body;    // pixels; empty when only the cascade ran
    std::optional<cv::Rect> face;    // pixels; cats only, when the cascade finds one
};

class PetDetector {
public:
    // blob: a bundle of "cascade" and "network", or a bare cascade. INVALID_MODEL otherwise.
    void load(const ModelBlob& blob);
    // At most maxCount pets, best first (cascade only: largest face first). memo: the
    // execute's; the pet nodes of one execute with the same models find the pets once, and
    // share the object detector's pass with the other nodes that run it. faces false: the
    // detector's pets without their faces (the cascade is skipped; with a bare cascade the
    // faces are the pets and are found all the same).
    std::vector<PetDetection> detect(const cv::Mat& bgr, size_t maxCount, ExecuteMemo* memo = nullptr, bool faces = true) const;

private:
    std::vector<PetDetection> find(const cv::Mat& bgr, ExecuteMemo* memo, bool faces) const;
    std::vector<PetDetection> cascadeOnly(const cv::Mat& bgr) const;
    std::optional<cv::Rect> catFace(const cv::Mat& bgr, const cv::Rect& cat) const;

    // The cat-face cascade, shared with the other systems of the process that load the same
    // bytes; its address names it in the memo's key.
    std::shared_ptr<const SharedCascade> cats_;
    std::unique_ptr<ObjectDetector> objects_;
};

}  // namespace kv
