// The COCO class names of the object detector, apart from the network so that the tables
// naming them (object_labels.tsv) can be read and tested without it.
#include <array>

#include "dnn/object_detector.h"

namespace kv {

namespace {

constexpr int kClasses = 80;

const std::array<std::string, kClasses> kNames = {
    "person", "bicycle", "car", "motorcycle", "airplane", "bus", "train", "truck", "boat", "traffic light",
    "fire hydrant", "stop sign", "parking meter", "bench", "bird", "cat", "dog", "horse", "sheep", "cow",
    "elephant", "bear", "zebra", "giraffe", "backpack", "umbrella", "handbag", "tie", "suitcase", "frisbee",
    "skis", "snowboard", "sports ball", "kite", "baseball bat", "baseball glove", "skateboard", "surfboard",
    "tennis racket", "bottle", "wine glass", "cup", "fork", "knife", "spoon", "bowl", "banana", "apple",
    "sandwich", "orange", "broccoli", "carrot", "hot dog", "pizza", "donut", "cake", "chair", "couch",
    "potted plant", "bed", "dining table", "toilet", "tv", "laptop", "mouse", "remote", "keyboard",
    "cell phone", "microwave", "oven", "toaster", "sink", "refrigerator", "book", "clock", "vase",
    "scissors", "teddy bear", "hair drier", "toothbrush"};

}  // namespace

const std::string& cocoClassName(int cocoClass) {
    static const std::string none;
    return cocoClass >= 0 && cocoClass < kClasses ? kNames[static_cast<size_t>(cocoClass)] : none;
}

}  // namespace kv
